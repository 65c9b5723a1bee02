#include "blob/blob_image.h"

#include "support/diagnostic.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"
#include "support/utf8_encode.h"
#include "text/wide_string.h"

namespace qk {

std::uint8_t* g_lpBlob = nullptr;
std::uint8_t* g_lpBuffer = nullptr;

BlobReader CurrentImage() {
    if (g_lpBlob == nullptr) {
        return BlobReader({});
    }
    return BlobReader({g_lpBlob, kMaxImageBytes});
}

BlobHeader* ImageHeader() {
    // The image is a zero-filled tracked block, aligned for any record.
    return reinterpret_cast<BlobHeader*>(g_lpBlob);
}

void SetCurrentImage(std::uint8_t* image) {
    ResetImage();
    g_lpBlob = image;
}

void BeginImage(std::uint32_t format) {
    ResetImage();
    g_lpBlob = static_cast<std::uint8_t*>(Allocate(static_cast<std::uint32_t>(kMaxImageBytes)));
    g_lpBuffer = g_lpBlob + kHeaderBytes;
    ImageHeader()->dwMagic = kBlobMagic;
    ImageHeader()->dwFormat = format;
}

bool ImageHasRoom(std::uint64_t bytes) {
    return bytes <= kMaxImageBytes - static_cast<std::uint64_t>(g_lpBuffer - g_lpBlob);
}

void ReserveImageBytes(std::uint64_t bytes, const wchar_t* kind, const wchar_t* name) {
    if (!ImageHasRoom(bytes)) {
        LogFormat(
            L"ERROR, CreateCompact, the blob would outgrow its limit of 0xFFFFF bytes "
            L"at the %ls \"%ls\"; no blob is written.\n",
            OrEmpty(kind), OrEmpty(name));
        Report(Diagnostic::Error("blob-too-large", {},
                                 "the blob would outgrow its limit of 1048575 bytes at the " +
                                     EncodeUtf8(OrEmpty(kind)) + " " + Quoted(OrEmpty(name)) +
                                     "; no blob is written"));
        ExitFree();
    }
}

std::uint32_t CursorPosition() {
    return static_cast<std::uint32_t>((g_lpBuffer - g_lpBlob - kHeaderBytes) / kUnitBytes);
}

void ResetImage() {
    g_lpBlob = nullptr;
    g_lpBuffer = nullptr;
}

}  // namespace qk
