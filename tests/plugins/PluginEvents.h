// PluginEvents.h - how the test plugins tell the test program what happened
// to them: a program that defines (and exports) OvraTestPluginEvent receives
// one line per event; in any other program the events go nowhere.
#ifndef OVRA_TESTS_PLUGINS_PLUGINEVENTS_H
#define OVRA_TESTS_PLUGINS_PLUGINEVENTS_H

#include <string>

#include "OvraBstr.h"

extern "C" __attribute__((weak, visibility("default"))) void OvraTestPluginEvent(
    const char* event);

inline void ReportEvent(const std::string& event) {
  if (OvraTestPluginEvent) OvraTestPluginEvent(event.c_str());
}

// "<plugin>:init:<path>", with the path as the plugin received it.
inline void ReportInit(const char* plugin, const TBstr& fileSpec) {
  ReportEvent(std::string(plugin) + ":init:" + fileSpec.GetMultibyteString());
}

#endif
