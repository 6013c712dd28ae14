// The tagged stream reader and its string reader under a script of operations: the first
// bytes choose the operations, the rest is the text. The position must stay within the text.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Error.h"
#include "storage/TaggedStream.h"
#include "storage/VqString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t scriptLength = data[0] % 32;
    if (size < 2 + scriptLength) return 0;
    const uint8_t* script = data + 2;
    const std::string text(reinterpret_cast<const char*>(data) + 2 + scriptLength,
                           size - 2 - scriptLength);
    vq::VqStringReader reader(text);
    if (data[1] & 1) reader.Delimiter("\n");
    static const char* const kTags[] = {"TASKNAME", "STEP", "A", "", "/STEP", "GENERAL", "<", "V>"};
    for (size_t i = 0; i < scriptLength; ++i) {
        const uint8_t op = script[i];
        const std::string tag = kTags[(op >> 3) % 8];
        try {
            switch (op % 8) {
                case 0:
                    reader.ReadNextLine();
                    break;
                case 1:
                    reader.SkipOneBack();
                    break;
                case 2:
                    reader.SkipOneForward();
                    break;
                case 3:
                    vq::InputZkStreamC(reader, tag, true);
                    break;
                case 4:
                    vq::InputZkStreamC(reader, tag, false);
                    break;
                case 5:
                    vq::InputZkStreamTag(reader, tag);
                    break;
                case 6:
                    vq::InputZkStreamLine(reader);
                    break;
                case 7:
                    reader.ResetPosition();
                    break;
            }
        } catch (const vq::VqError& e) {
            if (e.Number() != 5) std::abort();
        }
        if (reader.Position() < 1 || reader.Position() > text.size() + 1) std::abort();
    }
    // The value encoding: what is written holds no line break and reads back with CR LF only.
    const std::string written = vq::ConvertTagValue(text, vq::TagValueDirection::ForWriting);
    if (written.find_first_of("\r\n\x1A") != std::string::npos) std::abort();
    vq::TrimLine(text);
    return 0;
}
