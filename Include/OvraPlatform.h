// OvraPlatform.h - declarations shared by every public header: the export
// macro, C linkage and the handle convention. It includes no system header, so
// an application that includes Ovra.h sees no platform declaration.
#ifndef OVRA_OVRAPLATFORM_H
#define OVRA_OVRAPLATFORM_H

#include <stddef.h>
#include <stdint.h>

// Marks a declaration as part of the public interface. On Windows the library
// exports what carries it and an application imports it from ovra.dll; on
// other systems the library is built with hidden visibility, so anything
// without this mark stays private.
#if defined(_WIN32)
#if defined(OVRA_BUILDING_LIBRARY)
// Exported from ovra.dll (the library's own build).
#define OVRA_API __declspec(dllexport)
#else
// Imported from ovra.dll (an application's build).
#define OVRA_API __declspec(dllimport)
#endif
#else
// Part of the public interface: default visibility in a hidden-visibility build.
#define OVRA_API __attribute__((visibility("default")))
#endif

// Marks what a library built on the runtime (a plugin that TLibrary loads)
// exports itself: its SharedLibInit and SharedLibTerm and its own functions
// and variables. On Windows OVRA_API would import them from ovra.dll, so a
// plugin's own exports carry this mark instead; elsewhere it gives default
// visibility, as OVRA_API does.
#if defined(_WIN32)
// Exported from the plugin's own DLL.
#define OVRA_EXPORT __declspec(dllexport)
#else
// Exported from the plugin: default visibility.
#define OVRA_EXPORT __attribute__((visibility("default")))
#endif

// Exported free functions have C linkage so that their names stay undecorated.
#define OVRA_EXTERN_C extern "C"

// The null handle: no platform object (thread, queue, file, search, library) is open.
constexpr void* kInvalidHandleValue = nullptr;

#endif
