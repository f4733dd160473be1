#include "qozplay/media/Y4mHeader.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace qozplay {
namespace {

constexpr const char* kMagic = "YUV4MPEG2";

// Ways to place the chroma samples of 8-bit 4:2:0. They differ by half a pixel, which nobody
// downstream looks at.
constexpr std::array kColourSpaces{"420", "420jpeg", "420mpeg2", "420paldv"};

void checkColourSpace(const std::string& value, const std::string& name) {
    if (std::find(kColourSpaces.begin(), kColourSpaces.end(), value) != kColourSpaces.end()) return;
    throw BadInput(name + ": colour space C" + value + " is not 8-bit 4:2:0");
}

// A fraction of 0:0 stands for "unknown" in this format.
Rate rateOf(std::string value, const std::string& name) {
    if (value == "0:0") return {};
    std::replace(value.begin(), value.end(), ':', '/');
    return parseRate(value, name + ": rate");
}

void applyTag(const std::string& tag, const std::string& name, Y4mHeader* header) {
    const std::string value = tag.substr(1);
    const auto side = [&] {
        return static_cast<uint32_t>(parseNumber(value, kMaxSide, name + ": size"));
    };
    switch (tag[0]) {
        case 'W':
            header->size.width = side();
            break;
        case 'H':
            header->size.height = side();
            break;
        case 'F':
            header->rate = rateOf(value, name);
            break;
        case 'C':
            checkColourSpace(value, name);
            break;
        case 'A':
            if (value != "0:0") header->aspect = value;
            break;
        case 'X':
            if (value == "COLORRANGE=FULL") header->fullRange = true;
            break;
        default:  // interlacing: two fields are shown as the one frame they are stored as
            break;
    }
}

}  // namespace

Y4mHeader parseY4mHeader(const std::string& line, const std::string& name) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word != kMagic) throw BadInput(name + " is not a y4m clip");
    Y4mHeader header;
    while (words >> word) {
        applyTag(word, name, &header);
    }
    if (header.size.width == 0 || header.size.height == 0) {
        throw BadInput(name + ": a size of 0 holds no picture");
    }
    return header;
}

std::string toLine(const Y4mHeader& header) {
    return format("%s W%u H%u F%u:%u Ip A%s C420jpeg XCOLORRANGE=%s\n", kMagic, header.size.width,
                  header.size.height, header.rate.num, header.rate.den, header.aspect.c_str(),
                  header.fullRange ? "FULL" : "LIMITED");
}

size_t i420Bytes(Size size) {
    const size_t chroma = static_cast<size_t>((size.width + 1) / 2) * ((size.height + 1) / 2);
    return static_cast<size_t>(size.width) * size.height + 2 * chroma;
}

}  // namespace qozplay
