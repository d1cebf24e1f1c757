// ToolCommon.cpp - option parsing, reporting and input/output shared by the
// subcommands of the ovra program.
#include "ToolCommon.h"

#include <ctype.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ovratool {

void Report(const char* command, const char* format, ...) {
  if (command)
    fprintf(stderr, "ovra %s: ", command);
  else
    fputs("ovra: ", stderr);
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
}

std::string Quote(const std::string& name) {
  bool plain = !name.empty();
  bool control = false;
  for (char ch : name) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c < 0x20 || c == 0x7F) control = true;
    if (!isalnum(c) && !strchr("_./:,+@%=^-", c)) plain = false;
  }
  if (plain) return name;
  std::string quoted;
  if (!control) {
    quoted = "'";
    for (char c : name) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
  }
  quoted = "$'";
  for (char ch : name) {
    const unsigned char c = static_cast<unsigned char>(ch);
    switch (c) {
      case '\n': quoted += "\\n"; break;
      case '\r': quoted += "\\r"; break;
      case '\t': quoted += "\\t"; break;
      case '\\': quoted += "\\\\"; break;
      case '\'': quoted += "\\'"; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char octal[8];
          snprintf(octal, sizeof octal, "\\%03o", c);
          quoted += octal;
        } else {
          quoted += ch;
        }
    }
  }
  return quoted + "'";
}

bool ParsedArgs::Has(const char* name) const { return Value(name) != nullptr; }

const std::string* ParsedArgs::Value(const char* name) const {
  const std::string* found = nullptr;
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) found = &values[i];
  }
  return found;
}

namespace {

// The spec whose long name is name, or else the one only whose long name
// starts with it; ambiguous is set when several do.
const OptionSpec* FindLong(const OptionSpec* specs, const std::string& name, bool& ambiguous) {
  ambiguous = false;
  const OptionSpec* prefixMatch = nullptr;
  int prefixMatches = 0;
  for (const OptionSpec* spec = specs; spec && spec->longName; ++spec) {
    if (name == spec->longName) return spec;
    if (!name.empty() && std::string(spec->longName).compare(0, name.size(), name) == 0) {
      prefixMatch = spec;
      ++prefixMatches;
    }
  }
  // "--help" takes part in the shortening too ("--he").
  if (!name.empty() && std::string("help").compare(0, name.size(), name) == 0) ++prefixMatches;
  if (prefixMatches > 1) {
    ambiguous = true;
    return nullptr;
  }
  return prefixMatch;
}

const OptionSpec* FindShort(const OptionSpec* specs, char name) {
  for (const OptionSpec* spec = specs; spec && spec->longName; ++spec) {
    if (spec->shortName != 0 && spec->shortName == name) return spec;
  }
  return nullptr;
}

const OptionSpec* FindDashWord(const OptionSpec* specs, const std::string& word) {
  for (const OptionSpec* spec = specs; spec && spec->longName; ++spec) {
    if (spec->dashWord && word == spec->dashWord) return spec;
  }
  return nullptr;
}

bool IsHelpPrefix(const std::string& name) {
  return name.size() >= 1 && std::string("help").compare(0, name.size(), name) == 0;
}

}  // namespace

bool ParseArgs(const char* command, int argc, char** argv, const OptionSpec* specs,
               ParsedArgs& out) {
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
      out.operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg == "-h") {
      out.help = true;
      continue;
    }
    if (arg.compare(0, 2, "--") == 0) {
      const size_t equals = arg.find('=');
      const std::string name = arg.substr(2, equals == std::string::npos ? std::string::npos
                                                                         : equals - 2);
      bool ambiguous = false;
      const OptionSpec* spec = FindLong(specs, name, ambiguous);
      if (!spec && !ambiguous && equals == std::string::npos && IsHelpPrefix(name)) {
        out.help = true;
        continue;
      }
      if (!spec) {
        Report(command, "%s option '%s' (try 'ovra %s --help')",
               ambiguous ? "ambiguous" : "unknown", arg.c_str(), command);
        return false;
      }
      std::string value;
      if (equals != std::string::npos) {
        if (!spec->takesValue) {
          Report(command, "option '--%s' takes no value", spec->longName);
          return false;
        }
        value = arg.substr(equals + 1);
      } else if (spec->takesValue) {
        if (i + 1 >= argc) {
          Report(command, "option '--%s' needs a value", spec->longName);
          return false;
        }
        value = argv[++i];
      }
      out.names.push_back(spec->longName);
      out.values.push_back(value);
      continue;
    }
    // A word after a single dash ("-iv"), then a group of short options.
    if (const OptionSpec* spec = FindDashWord(specs, arg.substr(1))) {
      std::string value;
      if (spec->takesValue) {
        if (i + 1 >= argc) {
          Report(command, "option '%s' needs a value", arg.c_str());
          return false;
        }
        value = argv[++i];
      }
      out.names.push_back(spec->longName);
      out.values.push_back(value);
      continue;
    }
    for (size_t k = 1; k < arg.size(); ++k) {
      const OptionSpec* spec = FindShort(specs, arg[k]);
      if (!spec) {
        if (arg[k] == 'h') {
          out.help = true;
          continue;
        }
        Report(command, "unknown option '-%c' (try 'ovra %s --help')", arg[k], command);
        return false;
      }
      std::string value;
      if (spec->takesValue) {
        if (k + 1 < arg.size()) {
          value = arg.substr(k + 1);
        } else if (i + 1 < argc) {
          value = argv[++i];
        } else {
          Report(command, "option '-%c' needs a value", arg[k]);
          return false;
        }
        k = arg.size();
      }
      out.names.push_back(spec->longName);
      out.values.push_back(value);
    }
  }
  return true;
}

bool CheckOperandCount(const char* command, const ParsedArgs& args, size_t most) {
  if (args.operands.size() <= most) return true;
  Report(command, "unexpected operand '%s' (try 'ovra %s --help')",
         args.operands[most].c_str(), command);
  return false;
}

// Files are read as bytes: on Windows the C library would otherwise turn CR LF
// into LF and stop at a Ctrl-Z.
#if defined(_WIN32)
constexpr int kReadFlags = O_RDONLY | O_BINARY;
#else
constexpr int kReadFlags = O_RDONLY;
#endif

Input::~Input() {
  if (m_fd >= 0 && !m_stdin) close(m_fd);
}

bool Input::Open(const char* command, const std::string& name) {
  m_command = command;
  m_name = name;
  m_failed = false;
  if (name == "-") {
    m_stdin = true;
    m_fd = STDIN_FILENO;
    return true;
  }
  m_fd = open(name.c_str(), kReadFlags);
  if (m_fd < 0) {
    Report(command, "%s: %s", Quote(name).c_str(), strerror(errno));
    return false;
  }
  struct stat status;
  if (fstat(m_fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    Report(command, "%s: %s", Quote(name).c_str(), strerror(EISDIR));
    close(m_fd);
    m_fd = -1;
    return false;
  }
  return true;
}

size_t Input::Read(unsigned char* buffer, size_t size) {
  if (m_failed || m_fd < 0) return 0;
  size_t got = 0;
  // Fills the buffer as far as the input allows, so that pipes delivering
  // small pieces still give whole chunks.
  while (got < size) {
    const ssize_t n = read(m_fd, buffer + got, size - got);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      Report(m_command, "%s: %s", Quote(m_name).c_str(), strerror(errno));
      m_failed = true;
      return 0;
    }
    got += static_cast<size_t>(n);
  }
  return got;
}

bool ReadAll(const char* command, const std::string& name, std::string& out) {
  Input input;
  if (!input.Open(command, name)) return false;
  std::vector<unsigned char> chunk(kChunkSize);
  out.clear();
  for (;;) {
    const size_t got = input.Read(chunk.data(), chunk.size());
    if (got == 0) break;
    out.append(reinterpret_cast<const char*>(chunk.data()), got);
  }
  return !input.Failed();
}

bool Write(const char* command, const void* data, size_t size) {
  if (size == 0) return true;
  if (fwrite(data, 1, size, stdout) != size) {
    Report(command, "write error: %s", strerror(errno));
    return false;
  }
  return true;
}

bool Write(const char* command, const std::string& text) {
  return Write(command, text.data(), text.size());
}

bool FinishOutput(const char* command) {
  if (fflush(stdout) != 0 || ferror(stdout)) {
    Report(command, "write error: %s", strerror(errno));
    return false;
  }
  return true;
}

int Help(const char* command, const std::string& text) {
  if (!Write(command, text) || !FinishOutput(command)) return kExitFailure;
  return kExitOk;
}

std::string Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int size = vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string text;
  if (size > 0) {
    text.resize(static_cast<size_t>(size) + 1);
    vsnprintf(&text[0], text.size(), format, again);
    text.resize(static_cast<size_t>(size));
  }
  va_end(again);
  return text;
}

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool ParseHex(const std::string& text, std::vector<unsigned char>& out) {
  out.clear();
  if (text.size() % 2 != 0) return false;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = HexValue(text[i]);
    const int low = HexValue(text[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<unsigned char>(high * 16 + low));
  }
  return true;
}

std::string ToHex(const unsigned char* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

bool ParseNumber(const std::string& text, long low, long high, long& out) {
  if (text.empty() || text.size() > 9) return false;
  long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  if (value < low || value > high) return false;
  out = value;
  return true;
}

bool ParseCount(const std::string& text, unsigned long long& out) {
  if (text.empty() || text.size() > 18) return false;
  unsigned long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  out = value;
  return true;
}

}  // namespace ovratool
