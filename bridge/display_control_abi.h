#pragma once

// The entry points of the display-control library, as the bridge calls them and
// as the stand-in library exports them.

namespace qk {

struct Customisations;

extern "C" {
using ZelMemoryAlloc = void* (*)(unsigned int size);
using ZelControlCreateFn = int (*)(ZelMemoryAlloc allocate, int mode);
using ZelControlDestroyFn = int (*)();
using ZelSystemReloadFn = int (*)();
using ZelGetCustomizationFn = int (*)(int database, Customisations* root);
using ZelProfileExistFn = int (*)(const wchar_t* area, const wchar_t* profile,
                                  unsigned char* exists);
using ZelDriverAreaPrivacyGetFn = int (*)(const wchar_t* area, int* privacy);
using ZelPropertyTypeGetFn = int (*)(const wchar_t* area, const wchar_t* property, int* type);
}

constexpr const char* kDisplayControlLibrary = "libvexzelxx.so";
// The answer of the customisation fetch when memory ran out (the memory
// callback gave nothing).
constexpr int kFetchOutOfMemory = -4;
// The answer of the privacy query for an area the installed system set lacks.
constexpr int kAreaNotInstalled = -13;

}  // namespace qk
