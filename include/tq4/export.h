#pragma once

/// Symbol visibility of the three libraries. A host that links a static build on Windows defines TQ4_STATIC (the CMake targets do it).

#if defined(_WIN32) && !defined(TQ4_STATIC)
#define TQ4_EXPORT __declspec(dllexport)
#define TQ4_IMPORT __declspec(dllimport)
#elif defined(_WIN32)
#define TQ4_EXPORT
#define TQ4_IMPORT
#else
#define TQ4_EXPORT __attribute__((visibility("default")))
#define TQ4_IMPORT __attribute__((visibility("default")))
#endif

#if defined(numcore_EXPORTS)
#define TQ4_NUMCORE_API TQ4_EXPORT
#else
#define TQ4_NUMCORE_API TQ4_IMPORT
#endif

#if defined(auxkit_EXPORTS)
#define TQ4_AUXKIT_API TQ4_EXPORT
#else
#define TQ4_AUXKIT_API TQ4_IMPORT
#endif

#if defined(gridweave_EXPORTS)
#define TQ4_GRIDWEAVE_API TQ4_EXPORT
#else
#define TQ4_GRIDWEAVE_API TQ4_IMPORT
#endif
