// The colour conversion: the reference and every vector version against the
// formula written out independently, over all 2^24 (Y, c0, c1), and against
// each other on random frames of several sizes.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faceDet/color_convert.h"

namespace {

// The formula stated apart from the code under test: the 16-bit wrap as a
// remainder modulo 65536, the arithmetic shift as a floor division.
int shifted(int v) {
    const int m = ((v % 65536) + 65536) % 65536;
    return static_cast<int>(std::floor((m >= 32768 ? m - 65536 : m) / 256.0));
}
int clamp255(int v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

struct Pixel {
    int b0, b1, b2;
};

Pixel formula(int y, int c0, int c1) {
    const int a = c0 - 128, b = c1 - 128;
    return {clamp255(y + shifted(455 * b)), clamp255(y - shifted(88 * b + 184 * a)),
            clamp255(y + shifted(360 * a))};
}

// Frames that together hold every (Y, c0, c1) once: 4096 wide, so a chroma
// row holds 2048 pairs and 32 chroma rows hold all 65536; each pair covers a
// 2x2 block whose four Y values are 4 * chunk + (row parity) * 2 + (column
// parity), so 64 chunks cover Y = 0..255.
constexpr int kExhaustiveWidth = 4096;
constexpr int kExhaustiveHeight = 64;
constexpr int kExhaustiveChunks = 64;

void fill_exhaustive_chunk(int chunk, std::vector<uint8_t> &nv12) {
    nv12.resize(kExhaustiveWidth * kExhaustiveHeight * 3 / 2);
    for (int r = 0; r < kExhaustiveHeight; ++r) {
        for (int x = 0; x < kExhaustiveWidth; ++x) {
            nv12[r * kExhaustiveWidth + x] = static_cast<uint8_t>(4 * chunk + 2 * (r & 1) + (x & 1));
        }
    }
    uint8_t *chroma = nv12.data() + kExhaustiveWidth * kExhaustiveHeight;
    for (int pair = 0; pair < 65536; ++pair) {
        chroma[2 * pair] = static_cast<uint8_t>(pair >> 8);
        chroma[2 * pair + 1] = static_cast<uint8_t>(pair & 0xFF);
    }
}

// Where two outputs of the same frame first differ: pixel (x, y) and byte.
std::string first_difference(int width, const std::vector<uint8_t> &want, const std::vector<uint8_t> &got) {
    const size_t i = std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin();
    return i == want.size() ? ""
                            : "pixel (" + std::to_string(i / 3 % width) + ", " +
                                  std::to_string(i / 3 / width) + ") byte " + std::to_string(i % 3);
}

}  // namespace

TEST(ColorConvert, EveryVersionFollowsTheFormulaForEveryCombination) {
    size_t n = 0;
    const Nv12ToBgrVariant *all = nv12_to_bgr_variants(&n);  // the reference first
    std::vector<uint8_t> nv12, want(kExhaustiveWidth * kExhaustiveHeight * 3), got(want.size());
    for (int chunk = 0; chunk < kExhaustiveChunks; ++chunk) {
        fill_exhaustive_chunk(chunk, nv12);
        // The bytes of a 2x2 block depend only on (Y, c0, c1): the formula once per chunk and block.
        Pixel table[4];
        for (int r = 0; r < kExhaustiveHeight; r += 2) {
            for (int x = 0; x < kExhaustiveWidth; x += 2) {
                const int pair = (r / 2) * (kExhaustiveWidth / 2) + x / 2;
                for (int k = 0; k < 4; ++k) {
                    table[k] = formula(4 * chunk + k, pair >> 8, pair & 0xFF);
                }
                for (int k = 0; k < 4; ++k) {
                    uint8_t *px = &want[((r + k / 2) * kExhaustiveWidth + x + k % 2) * 3];
                    px[0] = static_cast<uint8_t>(table[k].b0);
                    px[1] = static_cast<uint8_t>(table[k].b1);
                    px[2] = static_cast<uint8_t>(table[k].b2);
                }
            }
        }
        for (size_t i = 0; i < n; ++i) {
            if (!all[i].usable) {
                continue;
            }
            std::fill(got.begin(), got.end(), 0xA5);
            ASSERT_EQ(all[i].convert(nv12.data(), got.data(), kExhaustiveWidth, kExhaustiveHeight), 0);
            ASSERT_TRUE(got == want) << all[i].name << ", chunk " << chunk << ": "
                                     << first_difference(kExhaustiveWidth, want, got);
        }
    }
}

TEST(ColorConvert, EveryVersionMatchesTheReferenceOnRandomFrames) {
    struct Size {
        int width, height;
    } sizes[] = {
        {416, 234},                               // the analysis frame
        {8, 2},     {24, 4},  {40, 6},  {56, 2},  // narrower than one vector step, or with a tail
        {424, 10},  {440, 8}, {416, 3}, {32, 1},  // tails of 8, 24; a lone last row
        {1920, 16},
    };
    size_t n = 0;
    const Nv12ToBgrVariant *all = nv12_to_bgr_variants(&n);  // the reference first
    const std::vector<Nv12ToBgrVariant> versions(all + 1, all + n);
    ASSERT_FALSE(versions.empty()) << "no SSE2 or NEON version compiled in";
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    for (const Size &s : sizes) {
        for (int round = 0; round < (s.width == 416 && s.height == 234 ? 8 : 2); ++round) {
            std::vector<uint8_t> nv12(static_cast<size_t>(s.width) * (s.height + (s.height + 1) / 2));
            for (uint8_t &b : nv12) {
                b = static_cast<uint8_t>(byte(rng));
            }
            std::vector<uint8_t> want(static_cast<size_t>(s.width) * s.height * 3);
            ASSERT_EQ(nv12_to_bgr_reference(nv12.data(), want.data(), s.width, s.height), 0);
            for (const Nv12ToBgrVariant &v : versions) {
                if (!v.usable) {
                    continue;
                }
                // Exactly sized, so AddressSanitizer sees any write past the image.
                std::vector<uint8_t> got(want.size(), 0x5A);
                ASSERT_EQ(v.convert(nv12.data(), got.data(), s.width, s.height), 0) << v.name;
                EXPECT_TRUE(got == want) << v.name << " " << s.width << "x" << s.height << ": "
                                         << first_difference(s.width, want, got);
            }
            std::vector<uint8_t> dispatched(want.size());
            ASSERT_EQ(nv12_to_bgr(nv12.data(), dispatched.data(), s.width, s.height), 0);
            EXPECT_TRUE(dispatched == want) << nv12_to_bgr_active_name();  // the dispatch picks a usable one
        }
    }
}
