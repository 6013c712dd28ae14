// The encrypted task file. With an even first byte the rest of the input stands as the data
// lines between the markers, so that the decoder of the lines meets any text. With an odd
// first byte the rest is scrambled into data lines, so that the plain parse behind the
// decoder meets any text, and the decoded text must be the input exactly.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/TaskFile.h"
#include "storage/VqString.h"

namespace {

std::string Frame(const std::string& dataLines) {
    return "<?xml version=\"1.0\"?>\r\n<orvantisfile version=\"1.1\" encrypted=\"yes\">\r\n" +
           vq::EncryptedBeginMarker() + "\r\nX\r\n" + dataLines + vq::EncryptedEndMarker() +
           "\r\n</orvantisfile>\r\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string file;
    if (data[0] % 2 == 0) {
        file = Frame(std::string(rest) + "\r\n");
    } else {
        vq::SeededRandom random(size);
        std::string lines;
        for (size_t at = 0; at < rest.size(); at += 60)
            lines += vq::EncodeEncStr(rest.substr(at, 60), random) + "\r\n";
        file = Frame(lines);
        vq::VqStringReader reader(file);
        // An empty input gives no data line, and the plain form is then empty too.
        if (!vq::OpenEncryptedTaskFile(reader) || reader.toString() != rest) std::abort();
    }
    vq::TaskFileData task;
    std::string error;
    vq::ParseTaskFileText(file, "fuzz.vqf", task, error);
    return 0;
}
