// SystemCommands.cpp - find, sysinfo and inet: the file finder, the system
// information and the IPv4 address text of the library.
#include <stdio.h>

#include <string>

#include "OvraBstr.h"
#include "OvraFileFinder.h"
#include "OvraInet.h"
#include "OvraSystem.h"
#include "ToolCommon.h"

namespace ovratool {

int RunFind(int argc, char** argv) {
  const char* command = "find";
  static const OptionSpec kSpecs[] = {{"recursive", 'r', false}, {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra find [-r|--recursive] PATTERN\n"
                "Lists the entries matching PATTERN (wildcards \"*\", \"?\", \"[...]\" in its\n"
                "last component; quote it from the shell), one path a line. With -r the\n"
                "search also descends into the subdirectories whose names match, a\n"
                "directory listed before its contents. Exit status 1 when nothing matches.\n");
  }
  if (args.operands.empty()) {
    Report(command, "missing PATTERN (try 'ovra find --help')");
    return kExitUsage;
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  const std::string& pattern = args.operands[0];
  const TBstr widePattern(pattern.c_str());
  TFileFinder finder;
  if (!finder.Find(widePattern.GetString(), args.Has("recursive"))) {
    Report(command, "no match for '%s'", pattern.c_str());
    return kExitFailure;
  }
  do {
    // Names were widened byte for byte, so narrowing gives their bytes back.
    const TBstr spec = finder.GetFileSpec();
    if (!Write(command, std::string(spec.GetMultibyteString()) + "\n")) return kExitFailure;
  } while (finder.FindNext());
  finder.Close();
  return FinishOutput(command) ? kExitOk : kExitFailure;
}

int RunSysinfo(int argc, char** argv) {
  const char* command = "sysinfo";
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra sysinfo\n"
                "Prints the operating system's name and its release as three numbers:\n"
                "  system: Linux\n"
                "  version: 6.1.0\n");
  }
  if (!CheckOperandCount(command, args, 0)) return kExitUsage;
  SSystemInfo info;
  info.majorVersion = 0;
  info.minorVersion = 0;
  info.revision = 0;  // a release text without "." leaves it alone
  info.reserved = 0;
  OvraGetSystemInfo(&info);
  char version[64];
  snprintf(version, sizeof version, "%d.%d.%u", info.majorVersion, info.minorVersion,
           info.revision);
  const std::string text = std::string("system: ") + info.osName.GetMultibyteString() +
                           "\nversion: " + version + "\n";
  if (!Write(command, text)) return kExitFailure;
  return FinishOutput(command) ? kExitOk : kExitFailure;
}

int RunInet(int argc, char** argv) {
  const char* command = "inet";
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra inet TEXT...\n"
                "Reads each TEXT as an IPv4 address with an optional \":port\" and prints\n"
                "it in its canonical dotted form. Fewer than four parts are accepted, the\n"
                "last filling the remaining bytes (\"10.1\" is 10.0.0.1, \"167772161\" too).\n");
  }
  if (args.operands.empty()) {
    Report(command, "missing TEXT (try 'ovra inet --help')");
    return kExitUsage;
  }
  int status = kExitOk;
  for (const std::string& text : args.operands) {
    const TBstr wide(text.c_str());
    unsigned int address = 0;
    unsigned short port = 0;
    if (!OvraInetAtoN(wide.GetString(), &address, &port)) {
      Report(command, "not an IPv4 address: '%s'", text.c_str());
      status = kExitFailure;
      continue;
    }
    TBstr out;
    if (text.find(':') != std::string::npos)
      OvraInetNtoAEx(address, port, out);
    else
      OvraInetNtoA(address, out);
    if (!Write(command, std::string(out.GetMultibyteString()) + "\n")) return kExitFailure;
  }
  return FinishOutput(command) ? status : kExitFailure;
}

}  // namespace ovratool
