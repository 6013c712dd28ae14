// The unscrambling routines on any bytes: text scrambling's decoder, block unscrambling and
// hex decoding. And what is scrambled must come back.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try {
        vq::DecodeEncStr(input);
    } catch (const vq::VqError& e) {
        if (e.Number() != 5) std::abort();
    }
    if (vq::ScrambleBlock("D", input).size() > 39) std::abort();
    vq::HexDecode(input);

    vq::SeededRandom random(size);
    if (vq::DecodeEncStr(vq::EncodeEncStr(input, random)) != input) std::abort();
    const std::string_view head = input.substr(0, 39);
    if (vq::ScrambleBlock("D", vq::ScrambleBlock("E", head, random)) != head) std::abort();
    return 0;
}
