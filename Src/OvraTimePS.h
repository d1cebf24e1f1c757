// OvraTimePS.h - private platform layer of the free-running clocks: the
// system's time of day and nothing else. The clocks' 32-bit arithmetic is
// kept once, in OvraTime.cpp, over this call.
#ifndef OVRA_SRC_OVRATIMEPS_H
#define OVRA_SRC_OVRATIMEPS_H

// The wall clock as seconds and microseconds (0 to 999999) since
// 1970-01-01 UTC, read through the system-call table.
void InternalTimeOfDay(long long& seconds, long& microseconds);

#endif
