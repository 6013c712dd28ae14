// The NonWork.dat reader on any bytes, into a cache of two years from a base year that the
// first two bytes choose. Marks land only inside the cache.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Error.h"
#include "storage/Classes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    vq::ClassData classes;
    classes.NonWorkBaseYear = 1990 + (data[0] << 8 | data[1]) % 80;
    try {
        vq::FillNonWorkCache(classes,
                             std::string(reinterpret_cast<const char*>(data) + 2, size - 2));
    } catch (const vq::VqError&) {
    }
    if (classes.NonWorkCache.size() != 732) std::abort();
    for (char c : classes.NonWorkCache)
        if (c != ' ' && c != 'H') std::abort();
    return 0;
}
