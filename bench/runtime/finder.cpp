// A recursive walk of a generated tree with the file finder, against
// std::filesystem::recursive_directory_iterator collecting the same record
// per entry (name, directory or not without following links, size and
// modification time, read with lstat as the finder reads them).
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "OvraBstr.h"
#include "OvraFileFinder.h"

namespace fs = std::filesystem;

namespace {

// Three levels below the root, 6 directories and 16 files in each directory:
// 259 directories and 4144 files.
constexpr int kDepth = 3;
constexpr int kDirectories = 6;
constexpr int kFiles = 16;

class TTree {
 public:
  TTree() {
    root_ = (fs::temp_directory_path() / ("ovra-bench-tree-" + std::to_string(getpid()))).string();
    fs::remove_all(root_);
    Fill(root_, kDepth);
  }
  ~TTree() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  const std::string& Root() const { return root_; }
  long Entries() const { return entries_; }

 private:
  void Fill(const std::string& directory, int depth) {
    fs::create_directory(directory);
    for (int f = 0; f < kFiles; ++f) {
      const std::string name = directory + "/file_" + std::to_string(f) + ".dat";
      FILE* file = fopen(name.c_str(), "wb");
      if (file) {
        fwrite(name.data(), 1, name.size() % 97, file);
        fclose(file);
      }
      ++entries_;
    }
    if (depth == 0) return;
    for (int d = 0; d < kDirectories; ++d) {
      ++entries_;
      Fill(directory + "/directory_" + std::to_string(d), depth - 1);
    }
  }

  std::string root_;
  long entries_ = 0;
};

const TTree& Tree() {
  static const TTree tree;
  return tree;
}

void WalkOvra(benchmark::State& state) {
  const TBstr pattern((Tree().Root() + "/*").c_str());
  for (auto _ : state) {
    long entries = 0;
    unsigned long long bytes = 0;
    TFileFinder finder;
    for (bool found = finder.Find(pattern.GetString(), true); found; found = finder.FindNext()) {
      ++entries;
      bytes += finder.size + static_cast<unsigned>(finder.name.GetLength()) + finder.isDirectory;
      benchmark::DoNotOptimize(finder.lastWriteTime);
    }
    benchmark::DoNotOptimize(bytes);
    if (entries != Tree().Entries()) state.SkipWithError("wrong entry count");
  }
  state.SetItemsProcessed(state.iterations() * Tree().Entries());
}

void WalkRef(benchmark::State& state) {
  const fs::path root(Tree().Root());
  for (auto _ : state) {
    long entries = 0;
    unsigned long long bytes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      struct stat status;
      if (lstat(entry.path().c_str(), &status) != 0) continue;
      ++entries;
      const std::string name = entry.path().filename().string();
      bytes += static_cast<unsigned long long>(status.st_size) + name.size() +
               S_ISDIR(status.st_mode);
      benchmark::DoNotOptimize(status.st_mtime);
    }
    benchmark::DoNotOptimize(bytes);
    if (entries != Tree().Entries()) state.SkipWithError("wrong entry count");
  }
  state.SetItemsProcessed(state.iterations() * Tree().Entries());
}

// The iterator alone, names only: what the walk costs without the record.
void WalkNamesOnlyRef(benchmark::State& state) {
  const fs::path root(Tree().Root());
  for (auto _ : state) {
    long entries = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      benchmark::DoNotOptimize(entry.path().c_str());
      ++entries;
    }
    if (entries != Tree().Entries()) state.SkipWithError("wrong entry count");
  }
  state.SetItemsProcessed(state.iterations() * Tree().Entries());
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("FinderWalk/ovra", WalkOvra);
  benchmark::RegisterBenchmark("FinderWalk/ref", WalkRef);
  benchmark::RegisterBenchmark("FinderWalkNamesOnly/ref", WalkNamesOnlyRef);
  return 0;
}();

}  // namespace
