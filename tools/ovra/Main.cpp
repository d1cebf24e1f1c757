// ovra - the library's services from the shell: digests, HMAC, Base64, the
// Internet checksum, ciphers, the file finder, system information, IPv4
// address text, HTML and UTF-8 conversions.
#include <stdio.h>
#include <string.h>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

#include <new>
#include <string>

#include "Ovra.h"
#include "ToolCommon.h"

#ifndef OVRA_TOOL_VERSION
#define OVRA_TOOL_VERSION "unknown"
#endif

namespace {

struct Subcommand {
  const char* name;
  int (*run)(int argc, char** argv);
  const char* summary;
};

const Subcommand kSubcommands[] = {
    {"md4", ovratool::RunMd4, "MD4 digests of files: print or check (-c) listings"},
    {"md5", ovratool::RunMd5, "MD5 digests of files: print or check (-c) listings"},
    {"sha1", ovratool::RunSha1, "SHA-1 digests of files: print or check (-c) listings"},
    {"hmac", ovratool::RunHmac, "HMAC-MD5 or HMAC-SHA-1 of a file under a hex key"},
    {"checksum", ovratool::RunChecksum, "the Internet checksum of files"},
    {"base64", ovratool::RunBase64, "Base64 encoding (wrapped at 76 columns) and decoding (-d)"},
    {"encrypt", ovratool::RunEncrypt, "DES, RC2 or RC4 encryption with a raw hex key"},
    {"decrypt", ovratool::RunDecrypt, "DES, RC2 or RC4 decryption with a raw hex key"},
    {"find", ovratool::RunFind, "entries matching a wildcard pattern (-r: recursively)"},
    {"sysinfo", ovratool::RunSysinfo, "the operating system's name and release"},
    {"inet", ovratool::RunInet, "IPv4 address text in canonical form"},
    {"html2text", ovratool::RunHtmlToText, "HTML to plain text"},
    {"text2html", ovratool::RunTextToHtml, "plain text to an HTML page"},
    {"utf8", ovratool::RunUtf8, "UTF-8 to and from UTF-16 and Latin-1"},
};

std::string Usage() {
  std::string text =
      "Usage: ovra COMMAND [OPTION...] [ARGUMENT...]\n"
      "       ovra --version | --help\n"
      "Commands (each takes --help):\n";
  for (const Subcommand& sub : kSubcommands)
    text += ovratool::Format("  %-10s %s\n", sub.name, sub.summary);
  text +=
      "Exit status: 0 on success, 1 when the work failed (a file that cannot be\n"
      "read, bad data, a write error), 2 for a command line that cannot be understood.\n";
  return text;
}

int Dispatch(int argc, char** argv) {
  if (argc < 2) {
    fputs(Usage().c_str(), stderr);
    return ovratool::kExitUsage;
  }
  const char* name = argv[1];
  if (strcmp(name, "--version") == 0) {
    // The version of the library the program was built with and ships with.
    return ovratool::Help(nullptr, "ovra " OVRA_TOOL_VERSION "\n");
  }
  if (strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "help") == 0) {
    return ovratool::Help(nullptr, Usage());
  }
  for (const Subcommand& sub : kSubcommands) {
    if (strcmp(name, sub.name) == 0) return sub.run(argc - 1, argv + 1);
  }
  ovratool::Report(nullptr, "unknown command '%s' (try 'ovra --help')", name);
  return ovratool::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
#if defined(_WIN32)
  // The commands read and write bytes: the standard streams must not turn
  // LF into CR LF, nor stop reading at a Ctrl-Z.
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  if (!OvraInitialize(nullptr)) {
    fprintf(stderr, "ovra: the library failed to start\n");
    return ovratool::kExitFailure;
  }
  int status = ovratool::kExitFailure;
  try {
    status = Dispatch(argc, argv);
  } catch (const std::bad_alloc&) {
    fprintf(stderr, "ovra: out of memory\n");
    status = ovratool::kExitFailure;
  }
  OvraUninitialize();
  return status;
}
