// OvraFilePS.h - private platform layer of TFile beside the stream calls that
// OvraFile.h declares: what TFile::Open asks of a stream it has just opened.
#ifndef OVRA_SRC_OVRAFILEPS_H
#define OVRA_SRC_OVRAFILEPS_H

// Whether the open stream `handle` is a directory: 1 when it is, 0 when it is
// not, -1 when the system cannot tell (errno then holds the system's reason).
int InternalFileIsDirectory(void* handle);

#endif
