// ovra_strings - the string value TBstr, 16-bit formatting, UTF-8 and the
// HTML/entity conversions. Each step prints what it did and checks it; the
// exit status is 1 if any result differs from what is expected.
#include <stdio.h>
#include <string.h>

#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraCrt.h"

namespace {

int g_failures = 0;

// Prints a step with the text it produced and checks it against `want`.
void Show(const char* what, const TBstr& text, const char* want) {
  const bool ok = strcmp(text.GetMultibyteString(), want) == 0;
  printf("%-28s \"%s\"%s\n", what, text.GetMultibyteString(), ok ? "" : "  <-- unexpected");
  if (!ok) ++g_failures;
}

}  // namespace

int main() {
  if (!OvraInitialize(nullptr)) return 1;
  {
    // Narrow text is widened byte for byte into 16-bit characters.
    TBstr greeting("Hello");
    greeting += ", ";
    greeting.Append(TBstr("world"));
    Show("built by appending", greeting, "Hello, world");

    printf("%-28s %d characters, \"world\" at %d\n", "length and search",
           greeting.GetLength(), greeting.Find(TBstr("world").GetString()));
    if (greeting.GetLength() != 12 || greeting.Find(TBstr("world").GetString()) != 7) ++g_failures;

    TBstr upper(greeting);
    upper.MakeUpper();
    Show("upper case copy", upper, "HELLO, WORLD");
    Show("the original is unchanged", greeting, "Hello, world");
    Show("Mid(7, 5)", greeting.Mid(7, 5), "world");

    TBstr replaced(greeting);
    const int count = replaced.Replace(TBstr("l").GetString(), TBstr("L").GetString());
    Show("every l replaced", replaced, "HeLLo, worLd");
    if (count != 3) ++g_failures;

    // Formats are 16-bit text too, and "%s" takes 16-bit strings.
    TBstr formatted;
    formatted.Format(TBstr("%s has %d characters").GetString(), greeting.GetString(),
                     greeting.GetLength());
    Show("Format", formatted, "Hello, world has 12 characters");

    // Comparing without regard to ASCII case.
    printf("%-28s %s\n", "CompareNoCase with upper",
           greeting.CompareNoCase(upper.GetString()) == 0 ? "equal" : "different");
    if (greeting.CompareNoCase(upper.GetString()) != 0) ++g_failures;

    // UTF-8: "café" has 4 characters and takes 5 bytes.
    const char utf8[] = "caf\xC3\xA9";
    unsigned short wide[8];
    const int characters = OvraUtf8ToString(utf8, 5, wide, 8);
    const TBstr cafe(wide, characters);
    char back[16];
    const int bytes = OvraStringToUtf8(cafe.GetString(), cafe.GetLength(), back, 14);
    printf("%-28s %d characters, %d UTF-8 bytes, best encoding %s\n", "UTF-8 round trip",
           cafe.GetLength(), bytes, cafe.GetBestEncoding().GetMultibyteString());
    if (characters != 4 || bytes != 5 || memcmp(back, utf8, 5) != 0) ++g_failures;

    // Text to HTML and back.
    TBstr html;
    OvraPlainToHtml(TBstr("1 < 2 & \"so\"\r\nnext").GetString(), html);
    Show("plain text to HTML", html,
         "<HTML><BODY>1 &lt; 2 &amp; &quot;so&quot;<BR>next</BODY></HTML>");
    TBstr plain;
    OvraHtmlToPlain(html.GetString(), plain);
    Show("and back to plain text", plain, "1 < 2 & \"so\"\r\nnext");

    // The 16-bit runtime routines work on any zero-terminated 16-bit text.
    printf("%-28s %u\n", "ucslen of the greeting",
           static_cast<unsigned>(ucslen(greeting.GetString())));
  }
  OvraUninitialize();
  printf("%s\n", g_failures ? "FAILED" : "all string steps as expected");
  return g_failures ? 1 : 0;
}
