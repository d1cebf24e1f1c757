// ToolCommon.cpp - option parsing, reporting and input/output shared by the
// subcommands of the ovra program.
#include "ToolCommon.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ovratool {

void Report(const char* command, const char* format, ...) {
  fprintf(stderr, "ovra %s: ", command);
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
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

const OptionSpec* FindLong(const OptionSpec* specs, const std::string& name) {
  for (const OptionSpec* spec = specs; spec && spec->longName; ++spec) {
    if (name == spec->longName) return spec;
  }
  return nullptr;
}

const OptionSpec* FindShort(const OptionSpec* specs, char name) {
  for (const OptionSpec* spec = specs; spec && spec->longName; ++spec) {
    if (spec->shortName != 0 && spec->shortName == name) return spec;
  }
  return nullptr;
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
    if (arg == "--help" || arg == "-h") {
      out.help = true;
      continue;
    }
    const OptionSpec* spec = nullptr;
    std::string value;
    bool hasInlineValue = false;
    if (arg.compare(0, 2, "--") == 0) {
      const size_t equals = arg.find('=');
      const std::string name = arg.substr(2, equals == std::string::npos ? std::string::npos
                                                                         : equals - 2);
      spec = FindLong(specs, name);
      if (spec && equals != std::string::npos) {
        value = arg.substr(equals + 1);
        hasInlineValue = true;
      }
    } else if (arg.size() == 2) {
      spec = FindShort(specs, arg[1]);
    }
    if (!spec) {
      Report(command, "unknown option '%s' (try 'ovra %s --help')", arg.c_str(), command);
      return false;
    }
    if (spec->takesValue && !hasInlineValue) {
      if (i + 1 >= argc) {
        Report(command, "option '--%s' needs a value", spec->longName);
        return false;
      }
      value = argv[++i];
    } else if (!spec->takesValue && hasInlineValue) {
      Report(command, "option '--%s' takes no value", spec->longName);
      return false;
    }
    out.names.push_back(spec->longName);
    out.values.push_back(value);
  }
  return true;
}

bool CheckOperandCount(const char* command, const ParsedArgs& args, size_t most) {
  if (args.operands.size() <= most) return true;
  Report(command, "unexpected operand '%s' (try 'ovra %s --help')",
         args.operands[most].c_str(), command);
  return false;
}

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
  m_fd = open(name.c_str(), O_RDONLY);
  if (m_fd < 0) {
    Report(command, "%s: %s", name.c_str(), strerror(errno));
    return false;
  }
  struct stat status;
  if (fstat(m_fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    Report(command, "%s: %s", name.c_str(), strerror(EISDIR));
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
      Report(m_command, "%s: %s", m_name.c_str(), strerror(errno));
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

}  // namespace ovratool
