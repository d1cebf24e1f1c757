// PluginEvents.h - how the test plugins tell the test program what happened
// to them: a program that defines (and exports) OvraTestPluginEvent receives
// one line per event; in any other program the events go nowhere. A plugin
// marks its own exports with OVRA_EXPORT (Ovra.h declares its entry points so).
#ifndef OVRA_TESTS_PLUGINS_PLUGINEVENTS_H
#define OVRA_TESTS_PLUGINS_PLUGINEVENTS_H

#include <string>

#include "OvraBstr.h"

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

// A DLL has no weak symbols: the receiver is looked up among the program's
// exports.
inline void ReportEvent(const std::string& event) {
  typedef void (*Receiver)(const char*);
  const FARPROC found = GetProcAddress(GetModuleHandleW(nullptr), "OvraTestPluginEvent");
  if (found) reinterpret_cast<Receiver>(reinterpret_cast<void (*)(void)>(found))(event.c_str());
}
#else
extern "C" __attribute__((weak, visibility("default"))) void OvraTestPluginEvent(
    const char* event);

inline void ReportEvent(const std::string& event) {
  if (OvraTestPluginEvent) OvraTestPluginEvent(event.c_str());
}
#endif

// "<plugin>:init:<path>", with the path as the plugin received it.
inline void ReportInit(const char* plugin, const TBstr& fileSpec) {
  ReportEvent(std::string(plugin) + ":init:" + fileSpec.GetMultibyteString());
}

#endif
