#pragma once

#include <cstdint>

#include "blob/blob_image.h"

namespace qk {

// Where each table's next record goes. g_lpProfilePtr is the open profile's
// header, g_lpValuePtr the place of its next value record. After the build
// g_lpApplicationPtr marks the end of the image.
extern std::uint8_t* g_lpDriverPtr;
extern std::uint8_t* g_lpPropertyPtr;
extern std::uint8_t* g_lpAreaPtr;
extern std::uint8_t* g_lpProfilePtr;
extern std::uint8_t* g_lpValuePtr;
extern std::uint8_t* g_lpUsePtr;
extern std::uint8_t* g_lpApplicationPtr;

// Lays the checked tree out as a blob image in g_lpBlob; 0 on success.
int CreateCompact();

void DriverInitialise();
std::uint32_t DriverAdd(StringRef name, std::int32_t privacy);
void PropertyInitialise();
std::uint32_t PropertyAdd(std::int32_t type, StringRef name, StringRef set);
void AreaInitialise();
std::uint32_t AreaAdd(std::uint32_t driverPos, std::uint32_t firstPropertyPos);
void AreaAddProperty(std::uint32_t areaPos, std::uint32_t propertyPos);
void ProfileInitialise();
std::uint32_t ProfileAdd(std::uint32_t driverPos, StringRef name, StringRef notes);
// Appends a value record to the open profile. size is in bytes: 4 per byte for
// Binary (one word per byte), the data's bytes otherwise.
void ProfileAddValue(std::uint32_t namePos, const void* data, std::uint64_t size,
                     std::int32_t type);
void ProfileAddFinish();
void UseInitialise();
std::uint32_t UseAdd(std::uint32_t profilePos);
void ApplicationInitialise();
std::uint32_t ApplicationAdd(StringRef title, StringRef file, StringRef path, StringRef version,
                             std::uint32_t firstUsePos);
void ApplicationAddUse(std::uint32_t applicationPos, std::uint32_t usePos);

// The position a Use record stores: the first profile with a driver whose name
// and driver name match; 1 when none does, 0 when a name is missing.
std::uint32_t FindProfileElm(const wchar_t* profileName, const wchar_t* driverName);

// Fills every StringRef of the tree from the written Words table.
void FillInterimStrings();

// Forgets the image and every cursor (between runs in tests).
void ResetCompactBuilder();

}  // namespace qk
