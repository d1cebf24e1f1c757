// TestPlatformWin32.cpp - the Windows calls behind the shared test helpers
// (see TestPlatform.h). Built into every test program on Windows only.
#if defined(_WIN32)

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <windows.h>
#include <winioctl.h>

#include <string.h>

#include <string>
#include <vector>

#include "TestPlatform.h"

namespace ovra_test {
namespace win {
namespace {

std::wstring Wide(const std::string& utf8) {
  if (utf8.empty()) return std::wstring();
  const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                    nullptr, 0);
  std::wstring out(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &out[0], n);
  return out;
}

std::string Utf8(const std::wstring& wide) {
  if (wide.empty()) return std::string();
  const int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                    nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &out[0], n,
                      nullptr, nullptr);
  return out;
}

std::string Backslashed(std::string path) {
  for (char& c : path) {
    if (c == '/') c = '\\';
  }
  return path;
}

// The attributes of the entry itself, a link not followed: opening the
// reparse point reads the link even where the name lookup follows it (Wine
// does, and a dangling link then looks absent).
DWORD Attributes(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), 0,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetFileAttributesW(path.c_str());
  BY_HANDLE_FILE_INFORMATION info;
  const bool ok = GetFileInformationByHandle(file, &info) != 0;
  CloseHandle(file);
  return ok ? info.dwFileAttributes : GetFileAttributesW(path.c_str());
}

}  // namespace

bool Exists(const std::string& path) {
  return Attributes(Wide(path)) != INVALID_FILE_ATTRIBUTES;
}

bool IsDirectory(const std::string& path) {
  const DWORD attributes = Attributes(Wide(path));
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) &&
         !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

long long SizeOf(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(Wide(path).c_str(), GetFileExInfoStandard, &data)) return -1;
  return static_cast<long long>((static_cast<unsigned long long>(data.nFileSizeHigh) << 32) |
                                data.nFileSizeLow);
}

bool MakeDirectory(const std::string& path) {
  return CreateDirectoryW(Wide(path).c_str(), nullptr) != 0;
}

bool MakeSparseFile(const std::string& path, long long size) {
  const HANDLE file = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  // Without the sparse mark the file system may write the zeros out; one that
  // does not know the mark still takes the size.
  DWORD returned = 0;
  DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = size;
  const bool ok = SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file);
  CloseHandle(file);
  return ok;
}

void RemoveTree(const std::string& path) {
  const std::wstring wide = Wide(path);
  const DWORD attributes = Attributes(wide);
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if (attributes & FILE_ATTRIBUTE_READONLY) {
    SetFileAttributesW(wide.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    DeleteFileW(wide.c_str());
    return;
  }
  if (!(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW((wide + L"\\*").c_str(), &entry);
    if (search != INVALID_HANDLE_VALUE) {
      std::vector<std::string> names;
      do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L"..") names.push_back(Utf8(name));
      } while (FindNextFileW(search, &entry));
      FindClose(search);
      for (const std::string& name : names) RemoveTree(path + "/" + name);
    }
  }
  RemoveDirectoryW(wide.c_str());
}

std::string MakeTempFolder(const char* prefix) {
  wchar_t temp[MAX_PATH + 1];
  const DWORD n = GetTempPathW(MAX_PATH + 1, temp);
  if (n == 0 || n > MAX_PATH) return std::string();
  std::wstring base(temp, n);
  while (!base.empty() && (base.back() == L'\\' || base.back() == L'/')) base.pop_back();
  // The process id and a counter keep test programs that run side by side
  // apart; a name left over from an earlier run is passed over.
  static unsigned s_counter = 0;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const std::wstring name = base + L"\\" + Wide(prefix) + L"-" +
                              std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(++s_counter);
    if (CreateDirectoryW(name.c_str(), nullptr)) return Utf8(name);
    if (GetLastError() != ERROR_ALREADY_EXISTS) break;
  }
  return std::string();
}

std::string CurrentDirectory() {
  wchar_t buffer[4096];
  const DWORD n = GetCurrentDirectoryW(4096, buffer);
  return n > 0 && n < 4096 ? Utf8(std::wstring(buffer, n)) : std::string();
}

bool ChangeDirectory(const std::string& path) {
  return SetCurrentDirectoryW(Wide(path).c_str()) != 0;
}

std::string RealPath(const std::string& path) {
  const HANDLE file = CreateFileW(Wide(path).c_str(), 0,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::string();
  wchar_t buffer[4096];
  const DWORD n = GetFinalPathNameByHandleW(file, buffer, 4096, FILE_NAME_NORMALIZED);
  CloseHandle(file);
  if (n == 0 || n >= 4096) return std::string();
  std::wstring full(buffer, n);
  // The \\?\ prefix of the long-path form is no part of the name.
  if (full.compare(0, 4, L"\\\\?\\") == 0) full.erase(0, 4);
  return Utf8(full);
}

bool CanMakeSymlinks() {
  static const int s_can = [] {
    const std::string folder = MakeTempFolder("ovra-link-probe");
    if (folder.empty()) return 0;
    const std::wstring link = Wide(folder + "\\probe");
    // Some systems report success and make nothing: the link must be there.
    const bool made = CreateSymbolicLinkW(link.c_str(), L"nowhere",
                                          SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE) != 0 &&
                      Attributes(link) != INVALID_FILE_ATTRIBUTES;
    DeleteFileW(link.c_str());
    RemoveDirectoryW(Wide(folder).c_str());
    return made ? 1 : 0;
  }();
  return s_can != 0;
}

// A link to a folder must say so when it is made: the target is looked at
// now (relative to the link's folder), and one that does not exist gets a
// link to a file.
bool MakeSymlink(const std::string& target, const std::string& link) {
  const std::string native = Backslashed(target);
  std::string resolved = native;
  const bool absolute = native.size() >= 2 && (native[1] == ':' || native[0] == '\\');
  if (!absolute) {
    const std::string linkPath = Backslashed(link);
    const size_t slash = linkPath.find_last_of('\\');
    resolved = (slash == std::string::npos ? std::string(".") : linkPath.substr(0, slash)) +
               "\\" + native;
  }
  const DWORD attributes = GetFileAttributesW(Wide(resolved).c_str());
  DWORD flags = SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE;
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    flags |= SYMBOLIC_LINK_FLAG_DIRECTORY;
  }
  return CreateSymbolicLinkW(Wide(Backslashed(link)).c_str(), Wide(native).c_str(), flags) != 0;
}

bool IsModuleLoaded(const std::string& path) {
  return GetModuleHandleW(Wide(Backslashed(path)).c_str()) != nullptr;
}

void* ModuleSymbol(const std::string& path, const char* name) {
  const HMODULE module = GetModuleHandleW(Wide(Backslashed(path)).c_str());
  return module ? reinterpret_cast<void*>(GetProcAddress(module, name)) : nullptr;
}

std::string ModuleFileOf(const void* address) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                              GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          static_cast<LPCWSTR>(address), &module))
    return std::string();
  wchar_t buffer[4096];
  const DWORD n = GetModuleFileNameW(module, buffer, 4096);
  return n > 0 && n < 4096 ? Utf8(std::wstring(buffer, n)) : std::string();
}

bool SystemUtf16ToUtf8(const unsigned short* units, size_t count, std::string& out) {
  const wchar_t* wide = reinterpret_cast<const wchar_t*>(units);
  const int n = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, static_cast<int>(count),
                                    nullptr, 0, nullptr, nullptr);
  if (n <= 0) return false;
  out.assign(static_cast<size_t>(n), '\0');
  return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, static_cast<int>(count), &out[0],
                             n, nullptr, nullptr) == n;
}

unsigned char* MapZeros(size_t len) {
  return static_cast<unsigned char*>(
      VirtualAlloc(nullptr, len, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY));
}

void* OpenModule(const std::string& path) {
  return reinterpret_cast<void*>(LoadLibraryW(Wide(Backslashed(path)).c_str()));
}

void CloseModule(void* module) { FreeLibrary(static_cast<HMODULE>(module)); }

// inet_addr reads the same forms as inet_aton; its failure value is also the
// reading of 255.255.255.255, which the text then has to spell.
bool SystemInetAddress(const char* text, uint32_t& address) {
  const unsigned long value = inet_addr(text);
  address = ntohl(value);
  if (value != INADDR_NONE) return true;
  const std::string s = text;
  return s == "255.255.255.255" || s == "4294967295" || s == "255.16777215" ||
         s == "255.255.65535";
}

void* HandleSymbol(void* module, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

namespace {

// The placeholder calls, looked up at run time: they are missing from older
// systems and from some import libraries.
typedef PVOID(WINAPI* VirtualAlloc2Fn)(HANDLE, PVOID, SIZE_T, ULONG, ULONG, void*, ULONG);
typedef PVOID(WINAPI* MapViewOfFile3Fn)(HANDLE, HANDLE, PVOID, ULONG64, SIZE_T, ULONG, ULONG,
                                        void*, ULONG);

template <typename F>
F KernelBase(const char* name) {
  const HMODULE module = GetModuleHandleW(L"kernelbase.dll");
  return module ? reinterpret_cast<F>(reinterpret_cast<void (*)(void)>(
                      GetProcAddress(module, name)))
                : nullptr;
}

constexpr ULONG kReservePlaceholder = 0x00040000;  // MEM_RESERVE_PLACEHOLDER
constexpr ULONG kReplacePlaceholder = 0x00004000;  // MEM_REPLACE_PLACEHOLDER
constexpr ULONG kPreservePlaceholder = 0x00000002;  // MEM_PRESERVE_PLACEHOLDER

}  // namespace

unsigned char* MapRepeatedBlocks(const unsigned char* content, size_t block, size_t page,
                                 size_t blocks, bool writable) {
  const VirtualAlloc2Fn virtualAlloc2 = KernelBase<VirtualAlloc2Fn>("VirtualAlloc2");
  const MapViewOfFile3Fn mapViewOfFile3 = KernelBase<MapViewOfFile3Fn>("MapViewOfFile3");
  if (!virtualAlloc2 || !mapViewOfFile3) return nullptr;
  const unsigned long long sectionSize = block + page;
  const HANDLE section =
      CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                         static_cast<DWORD>(sectionSize >> 32), static_cast<DWORD>(sectionSize),
                         nullptr);
  if (!section) return nullptr;
  bool ok = false;
  if (void* fill = MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, block + page)) {
    memcpy(fill, content, block + page);
    UnmapViewOfFile(fill);
    ok = true;
  }
  const size_t total = blocks * block + page;
  unsigned char* base =
      ok ? static_cast<unsigned char*>(virtualAlloc2(nullptr, nullptr, total,
                                                     MEM_RESERVE | kReservePlaceholder,
                                                     PAGE_NOACCESS, nullptr, 0))
         : nullptr;
  const ULONG protection = writable ? PAGE_READWRITE : PAGE_READONLY;
  size_t mapped = 0;
  for (; base && mapped <= blocks; ++mapped) {
    unsigned char* at = base + mapped * block;
    const size_t size = mapped < blocks ? block : page;
    // Split the view's room off the front of the placeholder left.
    if (mapped < blocks &&
        !VirtualFree(at, size, MEM_RELEASE | kPreservePlaceholder))
      break;
    if (!mapViewOfFile3(section, nullptr, at, mapped < blocks ? 0 : block, size,
                        kReplacePlaceholder, protection, nullptr, 0))
      break;
  }
  CloseHandle(section);  // the views keep the section
  if (base && mapped != blocks + 1) {
    for (size_t i = 0; i < mapped; ++i) UnmapViewOfFile(base + i * block);
    // What is still a placeholder goes too.
    for (size_t i = mapped; i <= blocks; ++i) VirtualFree(base + i * block, 0, MEM_RELEASE);
    return nullptr;
  }
  return base;
}

void UnmapRepeatedBlocks(unsigned char* base, size_t block, size_t blocks) {
  for (size_t i = 0; i <= blocks; ++i) UnmapViewOfFile(base + i * block);
}

size_t PageSize() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

unsigned char* MapPages(size_t pages) {
  return static_cast<unsigned char*>(
      VirtualAlloc(nullptr, pages * PageSize(), MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
}

void UnmapPages(unsigned char* base, size_t) { VirtualFree(base, 0, MEM_RELEASE); }

bool ProtectNoAccess(unsigned char* address, size_t bytes) {
  DWORD old = 0;
  return VirtualProtect(address, bytes, PAGE_NOACCESS, &old) != 0;
}

FILE* OpenFile(const std::string& path, const char* mode) {
  return _wfopen(Wide(path).c_str(), Wide(mode).c_str());
}

bool UnderWine() {
  // Wine's ntdll exports its version; Windows' has no such function.
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

std::string TempPath() {
  wchar_t temp[MAX_PATH + 1];
  const DWORD n = GetTempPathW(MAX_PATH + 1, temp);
  return n == 0 || n > MAX_PATH ? std::string() : Utf8(std::wstring(temp, n));
}

bool LastWriteSeconds(const std::string& path, long long& seconds) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(Wide(path).c_str(), GetFileExInfoStandard, &data)) return false;
  // 100 ns units since 1601, which lies 11644473600 s before 1970.
  const long long units = static_cast<long long>(
      static_cast<unsigned long long>(data.ftLastWriteTime.dwHighDateTime) << 32 |
      data.ftLastWriteTime.dwLowDateTime);
  seconds = units / 10000000 - 11644473600LL;
  return true;
}

bool SystemVersion(unsigned long& major, unsigned long& minor, unsigned long& build) {
  // The kernel's own record: GetVersionExW gives an older version to programs
  // that do not declare the newer ones in a manifest.
  typedef LONG(WINAPI * RtlGetVersionFn)(OSVERSIONINFOW*);
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  const RtlGetVersionFn get =
      ntdll ? reinterpret_cast<RtlGetVersionFn>(
                  reinterpret_cast<void (*)(void)>(GetProcAddress(ntdll, "RtlGetVersion")))
            : nullptr;
  if (!get) return false;
  OSVERSIONINFOW version;
  memset(&version, 0, sizeof version);
  version.dwOSVersionInfoSize = sizeof version;
  if (get(&version) != 0) return false;
  major = version.dwMajorVersion;
  minor = version.dwMinorVersion;
  build = version.dwBuildNumber;
  return true;
}

}  // namespace win
}  // namespace ovra_test

#endif
