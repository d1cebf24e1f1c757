// ovra_files - files and folders in a temporary folder of its own: creating
// a path, writing and reading a file, its directory record, a recursive
// wildcard search, renaming and cleaning up. Exit status 1 on any surprise.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "Ovra.h"
#include "OvraFile.h"
#include "OvraFileFinder.h"

namespace {

int g_failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    printf("unexpected: %s\n", what);
    ++g_failures;
  }
}

// Writes text into a new file at spec.
bool WriteFile(const TBstr& spec, const char* text) {
  TFile file;
  if (!file.Open(spec, TFile::kOpenWrite, true)) return false;
  const unsigned length = static_cast<unsigned>(strlen(text));
  const bool written = file.Write(text, length) == length;
  return file.Close() && written;
}

}  // namespace

int main() {
  if (!OvraInitialize(nullptr)) return 1;
  {
    // A folder of our own under the temporary directory.
    char name[64];
    snprintf(name, sizeof name, "ovra_files_%ld", static_cast<long>(getpid()));
    const TBstr root = TFile::AppendFileNameToSpec(TFile::GetTempDirectory(), TBstr(name));
    const TBstr deep = TFile::AppendFileNameToSpec(root, TBstr("notes/2024"));
    Check(TFile::CreatePath(deep), "CreatePath");
    printf("created %s\n", deep.GetMultibyteString());

    const TBstr first = TFile::AppendFileNameToSpec(deep, TBstr("first.txt"));
    const TBstr second = TFile::AppendFileNameToSpec(root, TBstr("second.txt"));
    Check(WriteFile(first, "one line of text\n"), "write first.txt");
    Check(WriteFile(second, "another\n"), "write second.txt");

    // Reading it back.
    TFile file;
    char buffer[64] = {};
    Check(file.Open(first, TFile::kOpenRead, false), "open for reading");
    printf("first.txt is %u bytes long\n", file.GetLength());
    const unsigned got = file.Read(buffer, sizeof buffer - 1);
    printf("read %u bytes: %s", got, buffer);
    Check(got == 17 && strcmp(buffer, "one line of text\n") == 0, "read back");
    file.Close();

    // The directory record of one entry.
    TFileInfo info;
    Check(TFile::GetInfo(first, info) && info.size == 17 && !info.isDirectory, "GetInfo");
    printf("record: name %s, %u bytes, directory: %s\n", info.name.GetMultibyteString(),
           info.size, info.isDirectory ? "yes" : "no");

    // A recursive search for "*.txt" under the folder: only directories whose
    // own names match are entered, so use "*" to see everything.
    TFileFinder finder;
    const TBstr everything = TFile::AppendFileNameToSpec(root, TBstr("*"));
    int found = 0;
    int texts = 0;
    for (bool more = finder.Find(everything.GetString(), true); more; more = finder.FindNext()) {
      printf("found %s%s\n", finder.GetFileSpec().GetMultibyteString(),
             finder.isDirectory ? "/" : "");
      ++found;
      if (TFileFinder::ComparePattern(finder.name.GetString(), TBstr("*.txt").GetString()) == 0)
        ++texts;
    }
    finder.Close();
    Check(found == 4 && texts == 2, "recursive search");

    // Path text utilities never touch the disk.
    const TBstr messy("/tmp/a/./b/../c.txt");
    printf("canonical form of %s: %s, its folder %s\n", messy.GetMultibyteString(),
           TFile::CanonicalizeSpec(messy).GetMultibyteString(),
           TFile::DirSpecFromFullSpec(messy).GetMultibyteString());

    // Rename, then clean everything up.
    const TBstr renamed = TFile::AppendFileNameToSpec(root, TBstr("renamed.txt"));
    Check(TFile::Rename(second, renamed), "Rename");
    Check(TFile::Remove(renamed) && TFile::Remove(first), "Remove files");
    Check(TFile::RemoveDirectory(deep) &&
              TFile::RemoveDirectory(TFile::AppendFileNameToSpec(root, TBstr("notes"))) &&
              TFile::RemoveDirectory(root),
          "RemoveDirectory");
    printf("removed %s\n", root.GetMultibyteString());
  }
  OvraUninitialize();
  printf("%s\n", g_failures ? "FAILED" : "all file steps as expected");
  return g_failures ? 1 : 0;
}
