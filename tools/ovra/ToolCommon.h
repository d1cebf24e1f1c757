// ToolCommon.h - what every subcommand of the ovra program shares: option
// parsing, reporting, reading inputs in chunks, writing standard output and
// hexadecimal text.
#ifndef OVRA_TOOL_TOOLCOMMON_H
#define OVRA_TOOL_TOOLCOMMON_H

#include <stddef.h>

#include <string>
#include <vector>

namespace ovratool {

// Exit statuses: success, a failure while working (missing file, bad data),
// and a command line that could not be understood.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// The size of the chunks inputs are read in: memory stays constant whatever
// the size of the input.
constexpr size_t kChunkSize = 64 * 1024;

// Prints "ovra <command>: <message>" ("ovra: <message>" for a null command)
// and a line feed on standard error.
void Report(const char* command, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

// One option a subcommand understands: "--name" (and "-c" when shortName is
// not 0), followed by a value when takesValue ("--name VALUE", "--name=VALUE",
// "-c VALUE" or "-cVALUE"). Short options without a value may be grouped
// ("-di"), and a long name may be shortened to any prefix that no other long
// name shares ("--dec"). dashWord, when given, is also accepted after a single
// dash ("-iv VALUE"), the way some programs spell their options.
struct OptionSpec {
  const char* longName;
  char shortName;
  bool takesValue;
  const char* dashWord = nullptr;
};

// The command line of a subcommand once parsed.
struct ParsedArgs {
  std::vector<std::string> names;   // options seen, by long name, in order
  std::vector<std::string> values;  // their values ("" for flags)
  std::vector<std::string> operands;
  bool help = false;

  // The option was given.
  bool Has(const char* name) const;
  // The value of the last occurrence of the option, or null when absent.
  const std::string* Value(const char* name) const;
};

// The name as messages show it: as it is when it holds only letters, digits
// and "_./:,+@%=^-", else in single quotes ($'...' with escapes when it holds
// control characters), the way the usual command-line tools quote names.
std::string Quote(const std::string& name);

// Parses argv[1..argc) against specs (ended by a record with a null
// longName). "--help" and "-h" set help; "--" ends the options; "-" is an
// operand (standard input). Reports and returns false for an unknown option
// or a missing value.
bool ParseArgs(const char* command, int argc, char** argv, const OptionSpec* specs,
               ParsedArgs& out);

// Reports that the command takes at most `most` operands when it got more;
// returns whether the count is fine.
bool CheckOperandCount(const char* command, const ParsedArgs& args, size_t most);

// An input read in chunks: a file, or standard input for the name "-". Plain
// descriptors, so that a read error is told apart from the end of the input.
class Input {
 public:
  Input() = default;
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // Opens name; reports "<name>: <reason>" and returns false when it cannot.
  bool Open(const char* command, const std::string& name);
  // Reads up to size bytes; the count read, 0 at the end. A read error is
  // reported once and also ends the input (see Failed).
  size_t Read(unsigned char* buffer, size_t size);
  // A read error happened.
  bool Failed() const { return m_failed; }

 private:
  const char* m_command = "";
  std::string m_name;
  int m_fd = -1;
  bool m_stdin = false;
  bool m_failed = false;
};

// Reads the whole input name into out; reports and returns false on failure.
bool ReadAll(const char* command, const std::string& name, std::string& out);

// Writes size bytes to standard output; reports and returns false on failure.
bool Write(const char* command, const void* data, size_t size);
// Writes text to standard output.
bool Write(const char* command, const std::string& text);
// Flushes standard output; reports and returns false if anything went wrong.
bool FinishOutput(const char* command);
// Writes a help text to standard output: kExitOk, or kExitFailure (reported)
// when it cannot be written.
int Help(const char* command, const std::string& text);
// printf into a std::string.
std::string Format(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// Decodes hexadecimal text (digits of either case, an even count, nothing
// else) into bytes; false for anything else. The empty text gives no bytes.
bool ParseHex(const std::string& text, std::vector<unsigned char>& out);
// Lower-case hexadecimal text of the bytes.
std::string ToHex(const unsigned char* data, size_t size);

// Reads a decimal number in [low, high]; false for anything else.
bool ParseNumber(const std::string& text, long low, long high, long& out);
// Reads a decimal count of at most 18 digits; false for anything else.
bool ParseCount(const std::string& text, unsigned long long& out);

// The subcommands, each given its own argv (argv[0] is the subcommand's name)
// and returning the exit status.
int RunMd4(int argc, char** argv);
int RunMd5(int argc, char** argv);
int RunSha1(int argc, char** argv);
int RunHmac(int argc, char** argv);
int RunChecksum(int argc, char** argv);
int RunEncrypt(int argc, char** argv);
int RunDecrypt(int argc, char** argv);
int RunBase64(int argc, char** argv);
int RunHtmlToText(int argc, char** argv);
int RunTextToHtml(int argc, char** argv);
int RunUtf8(int argc, char** argv);
int RunFind(int argc, char** argv);
int RunSysinfo(int argc, char** argv);
int RunInet(int argc, char** argv);

}  // namespace ovratool

#endif
