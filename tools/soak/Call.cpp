#include "Call.h"

#include <algorithm>
#include <array>

namespace JCam::Soak {

namespace {

constexpr size_t kMaterialBytes = 65536;

constexpr std::array<std::string_view, 12> kFragments{
        "%s%n%08x",
        "%",
        "\n",
        "\r\n\t",
        "\xc3\xa9",
        "\xe2\x82\xac",
        "\xf0\x9f\x93\xb7",
        "\xe2\x82",
        "\xff\xfe",
        "\n-- CONTINUED --\n",
        " #17\n03-15 14:25:30.123456  4321  4350 D JLog    : R AppRequest:42 M[Preview:4] +  :x "
        "#18",
        "The quick brown fox jumps over the lazy dog; gain 2.50, exposure 33333 us"};

// The lengths at which something changes: a column's width, a limit, the block of a copy.
constexpr std::array<uint32_t, 8> kNameLengths{0, 1, 8, 9, 127, 128, 129, kMaxNameBytes};
constexpr std::array<uint32_t, 9> kTextLengths{0,    1,    127,  128,          129,
                                               1022, 1023, 1024, kMaxTextBytes};
constexpr uint32_t kUsualNameBytes = 24;
constexpr uint32_t kUsualTextBytes = 200;

/// With a name, without one, and of several bits.
constexpr std::array<uint32_t, 12> kModules{0x0,  0x1,  0x2,        0x4, 0x8,  0x10,
                                            0x20, 0x40, 0x80000000, 0x6, 0x3f, 0xffffffff};
/// Of the last ones the low byte alone is another level.
constexpr std::array<uint32_t, 12> kLevels{0, 1, 2, 3, 4, 5, 6, 7, 255, 0x100, 0x101, 0xffffffff};

std::string makeBytes(Random& random) {
    std::string bytes;
    while (bytes.size() < kMaterialBytes) {
        if (random.oneIn(2)) {
            bytes += random.pick(kFragments);
            continue;
        }
        for (uint32_t left = random.below(100); left > 0; --left) {
            bytes += static_cast<char>(1 + random.below(255));
        }
    }
    return bytes;
}

std::string_view piece(const std::string& bytes, size_t length, Random& random) {
    const auto starts = static_cast<uint32_t>(bytes.size() - length);
    return std::string_view(bytes).substr(random.below(starts), length);
}

/// Parts of 100000: rare enough that logging goes on, frequent enough for some a second.
CallKind drawKind(Random& random) {
    const uint32_t part = random.below(100000);
    if (part < 4) {
        return CallKind::FLUSH;
    }
    if (part < 14) {
        return CallKind::SET_LEVEL;
    }
    if (part < 24) {
        return CallKind::SET_FILTER;
    }
    if (part < 29) {
        return CallKind::UPDATE_LEVEL;
    }
    return part < 20000 ? CallKind::ENTER : part < 40000 ? CallKind::EXIT : CallKind::DETAILS;
}

uint32_t drawNumber(CallKind kind, Random& random) {
    constexpr std::array<uint32_t, 3> kFlushSeconds{0, 1, 3};
    constexpr uint32_t kThresholds = 8;  // 0, which restores the first one, to beyond verbose
    switch (kind) {
        case CallKind::DETAILS:
            return random.pick(kLevels);
        case CallKind::FLUSH:
            return random.pick(kFlushSeconds);
        case CallKind::SET_LEVEL:
            return random.below(kThresholds);
        default:
            // Mostly small, as request numbers are.
            return random.oneIn(4) ? static_cast<uint32_t>(random.next()) : random.below(1000);
    }
}

/// Mostly everything, else anything, seldom nothing: it stands until another thread changes it.
uint64_t drawFilter(Random& random) {
    const uint64_t any = random.next();
    return !random.oneIn(4) ? ~uint64_t{0} : random.oneIn(8) ? 0 : any;
}

}  // namespace

Material::Material(uint64_t seed) {
    Random random(seed);
    mBytes = makeBytes(random);
    mBytesWithNuls = mBytes;
    constexpr uint32_t kNulEvery = 200;
    for (size_t i = 0; i < mBytes.size(); i += 1 + random.below(2 * kNulEvery)) {
        mBytesWithNuls[i] = '\0';
    }
}

std::string_view Material::name(Random& random) const {
    const uint32_t length =
            random.oneIn(2) ? random.pick(kNameLengths) : random.below(kUsualNameBytes);
    return piece(mBytes, length, random);
}

std::string_view Material::text(Random& random) const {
    const uint32_t length =
            random.oneIn(2) ? random.pick(kTextLengths) : random.below(kUsualTextBytes);
    return piece(random.oneIn(8) ? mBytesWithNuls : mBytes, length, random);
}

Call makeCall(const Material& material, uint64_t threadSeed, uint64_t index) {
    Random random(threadSeed, index);
    Call call = {};
    call.kind = drawKind(random);
    call.number = drawNumber(call.kind, random);
    if (call.kind == CallKind::SET_FILTER) {
        call.filter = drawFilter(random);
    }
    if (!call.isRecord()) {
        return call;
    }
    call.asksFirst = !random.oneIn(8);
    call.moduleId = random.oneIn(8) ? static_cast<uint32_t>(random.next()) : random.pick(kModules);
    call.name = material.name(random);
    if (call.kind == CallKind::DETAILS) {
        call.text = material.text(random);
    }
    return call;
}

}  // namespace JCam::Soak
