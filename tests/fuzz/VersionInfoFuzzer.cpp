#include "base/HttpUrl.h"
#include "base/Text.h"
#include "fuzz/FuzzedFile.h"
#include "update/IsNewer.h"
#include "update/VersionInfo.h"

using namespace nulo;

// Whatever the service answers: nothing, or texts that can be shown, and an order of versions in
// which no two are each newer than the other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::string_view half = bytes.substr(0, size / 2);
    const std::string_view rest = bytes.substr(size / 2);
    fuzzingRequires(!isNewer(bytes, bytes), "a version is newer than itself");
    fuzzingRequires(!(isNewer(half, rest) && isNewer(rest, half)), "two versions are both newer");
    static_cast<void>(isSecureHttpUrl(bytes));
    const auto info = parsedVersionInfo(bytes);
    if (!info)
        return 0;
    for (const std::string* text :
         {&info->version, &info->downloadUrl, &info->releaseNotes, &info->minVersion})
        fuzzingRequires(isValidUtf8(*text), "a text is not UTF-8");
    static_cast<void>(isNewer(info->version, info->minVersion));
    return 0;
}
