// OvraLibrary.h - loading shared libraries under the runtime's entry-point
// contract, and looking up their functions by name.
//
// Every library loaded through TLibrary must define its own
//   OVRA_EXTERN_C OVRA_EXPORT bool SharedLibInit(const TBstr& fileSpec);
// which is called right after the library is opened, with the absolute path it
// was opened by, and may refuse the load by returning false. It may define
//   OVRA_EXTERN_C OVRA_EXPORT void SharedLibTerm(void);
// which is called right before the library is closed (also after a refusal).
// Only entries defined in the opened file itself count: the runtime's own pair,
// which the loader would otherwise find among the library's dependencies, is
// never taken for the library's.
#ifndef OVRA_OVRALIBRARY_H
#define OVRA_OVRALIBRARY_H

#include "OvraBstr.h"
#include "OvraPlatform.h"

// What GetProcAddress returns: the caller casts it to the function's real type
// (through void (*)(void), the one type compilers accept any function cast to
// without a warning) or, for a variable, to a pointer to its type.
typedef int (*OvraProc)(void);

// One loaded shared library, or none. Used by one thread at a time; not
// copyable (the object owns its loader handle).
class OVRA_API TLibrary {
 public:
  // The file-name extension of shared libraries on this platform, without its
  // dot and with a terminating zero unit, for callers that build file names.
  // Load never adds it (nor a "lib" prefix).
#if defined(_WIN32)
  // "dll" and its terminator.
  static const unsigned short kLibraryExtension[4];
#else
  // "so" and its terminator.
  static const unsigned short kLibraryExtension[3];
#endif

  // Nothing loaded, empty file spec.
  TLibrary();
  // Frees the library if one is loaded.
  ~TLibrary();

  TLibrary(const TLibrary&) = delete;
  TLibrary& operator=(const TLibrary&) = delete;

  // Opens the library file named by spec (see LibraryLoad) and keeps spec as
  // given. False, with the object unchanged, when a library is already loaded,
  // spec is empty, its copy cannot be made or LibraryLoad fails.
  bool Load(const TBstr& spec);
  // Runs the library's SharedLibTerm and closes it. False when nothing is
  // loaded, or when the loader fails to close it: the object then stays
  // loaded, although SharedLibTerm has already run.
  bool Free();
  // True while a library is loaded.
  bool IsLoaded() const { return m_handle != kInvalidHandleValue; }
  // The address of the function or variable called name in the library (or in
  // a library it depends on; on Windows in the library's own exports only),
  // cast by the caller; null when nothing is loaded,
  // the name is not found or its single-byte copy cannot be allocated.
  OvraProc GetProcAddress(const TBstr& name) const;
  // The spec given to the successful Load; empty when nothing is loaded.
  const TBstr& GetFileSpec() const { return m_fileSpec; }

  // --- loading by handle ----------------------------------------------------
  // What Load, Free and GetProcAddress do, for callers that keep the handle
  // themselves: the entry-point contract over the system's loader.

  // Opens a library and runs its SharedLibInit; the handle, or
  // kInvalidHandleValue on failure. No prefix or suffix is added: spec names
  // the file. The part before the last "/" (or "./" without a "/") must be an
  // existing directory, which is made absolute; so "libx.so" is "./libx.so" in
  // the current directory, never a library on the loader's search path, and
  // "/libx.so" fails (its directory part is empty; "//libx.so" names a file
  // in the root directory). Fails when spec has a
  // character 0 or above 255, spec or the absolute path needs more than 1023
  // bytes, memory runs out, the loader refuses the file, or SharedLibInit is
  // missing or refuses (the library is then closed as by LibraryFree).
  static void* LibraryLoad(const TBstr& spec);
  // Runs the library's SharedLibTerm, if it defines one, then closes the
  // handle. False for kInvalidHandleValue or when the loader's close fails.
  static bool LibraryFree(void* handle);
  // The loader's lookup of name in the library and its dependencies; null
  // when not found, for an invalid handle, and for a name that is empty or has
  // a character 0 or above 255.
  static OvraProc LibraryGetProcAddress(void* handle, const TBstr& name);

 private:
  void* m_handle;    // loader handle; kInvalidHandleValue when nothing is loaded
  TBstr m_fileSpec;  // the spec given to Load, empty when nothing is loaded
};

#endif
