// PluginEvents.h - how the test plugins tell the test program what happened
// to them: a program that defines (and exports) OvraTestPluginEvent receives
// one line per event; in any other program the events go nowhere. Also how a
// plugin marks what it exports.
#ifndef OVRA_TESTS_PLUGINS_PLUGINEVENTS_H
#define OVRA_TESTS_PLUGINS_PLUGINEVENTS_H

#include <string>

#if defined(_WIN32)
// Ovra.h declares the runtime's own SharedLibInit and SharedLibTerm, imported
// from ovra.dll; a plugin's definitions of them must be exported from the
// plugin instead, so the plugins see only what they use.
#include "OvraBstr.h"
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// A plugin's entry points and its other exports.
#define OVRA_PLUGIN_ENTRY extern "C" __declspec(dllexport)
#define OVRA_PLUGIN_EXPORT __declspec(dllexport)

// A DLL has no weak symbols: the receiver is looked up among the program's
// exports.
inline void ReportEvent(const std::string& event) {
  typedef void (*Receiver)(const char*);
  const FARPROC found = GetProcAddress(GetModuleHandleW(nullptr), "OvraTestPluginEvent");
  if (found) reinterpret_cast<Receiver>(reinterpret_cast<void (*)(void)>(found))(event.c_str());
}
#else
#include "Ovra.h"
// Ovra.h's declarations mark the entry points for export: a plugin built with
// hidden visibility needs no mark of its own on them.
#define OVRA_PLUGIN_ENTRY
#define OVRA_PLUGIN_EXPORT OVRA_API

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
