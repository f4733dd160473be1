// SPDX-License-Identifier: Apache-2.0
// The chroma of a frame in between.
#include "host/vppservice/FrameWriter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/ChromaWriter.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>
// After it, as it is compiled once for each target too.
#include "host/vppservice/Tiles-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

constexpr Shares kChromaShares = sharesOf(2, kNodeStep / 2);

// Interleaved chroma, both bytes of a sample alike; places are eighths of a sample.
struct ChromaSource {
    const uint8_t* older;
    const uint8_t* newer;
    int olderX, olderY;  // eighths right and down of the pointers
    int newerX, newerY;
    int newerShare;
};

// Reads what a node predicts for the chroma of a tile.
class ChromaReader {
  public:
    ChromaReader(const SubpixelPlanes& older, const SubpixelPlanes& newer)
        : mOlder(older), mNewer(newer), mPlaces(newer) {}

    const PlaceFinder& places() const { return mPlaces; }
    HWY_INLINE ChromaSource at(const NodeMotion& node, int x, int y) const {
        const auto [older, newer, newerShare] = mPlaces.of(node, x, y);
        return {mOlder.chroma(older.x >> 3, older.y >> 3),
                mNewer.chroma(newer.x >> 3, newer.y >> 3),
                older.x & 7,
                older.y & 7,
                newer.x & 7,
                newer.y & 7,
                newerShare};
    }

  private:
    const SubpixelPlanes& mOlder;
    const SubpixelPlanes& mNewer;
    const PlaceFinder mPlaces;
};

// Linear between the four samples around the place.
template <class D>
HWY_INLINE hn::VFromD<D> sampled(D d, const uint8_t* p, int x, int y, ptrdiff_t stride) {
    const hn::Rebind<uint8_t, D> bytes;
    const auto load = [d, bytes](const uint8_t* q)
                          HWY_ATTR { return hn::PromoteTo(d, hn::LoadU(bytes, q)); };
    const auto right = hn::Set(d, static_cast<uint16_t>(x));
    const auto across = [&](const uint8_t* q) HWY_ATTR {
        const auto left = load(q);
        return hn::Add(hn::ShiftLeft<3>(left), hn::Mul(hn::Sub(load(q + 2), left), right));
    };
    if (x == 0 && y == 0) return load(p);
    const auto top = across(p);
    if (y == 0) return hn::ShiftRight<3>(hn::Add(top, hn::Set(d, 4)));
    const auto below = hn::Set(d, static_cast<uint16_t>(y));
    const auto sum =
        hn::Add(hn::ShiftLeft<3>(top), hn::Mul(hn::Sub(across(p + stride), top), below));
    return hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, 32)));
}

template <class D>
HWY_INLINE hn::VFromD<D> chromaMixed(D d, const ChromaSource& source, ptrdiff_t offset,
                                     ptrdiff_t stride) {
    const auto older = [&]() HWY_ATTR {
        return sampled(d, source.older + offset, source.olderX, source.olderY, stride);
    };
    const auto newer = [&]() HWY_ATTR {
        return sampled(d, source.newer + offset, source.newerX, source.newerY, stride);
    };
    if (source.newerShare == 0) return older();
    if (source.newerShare == kWholeShare) return newer();
    const auto from = older();
    const auto share = hn::Set(d, static_cast<uint16_t>(source.newerShare));
    const auto sum = hn::Add(hn::ShiftLeft<6>(from), hn::Mul(hn::Sub(newer(), from), share));
    return hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, kWholeShare / 2)));
}

template <class D>
HWY_INLINE size_t writeChromaBy(D d, const ChromaSource& source, int row, ptrdiff_t stride,
                                uint8_t* to, size_t at, size_t count) {
    const hn::Rebind<uint8_t, D> bytes;
    for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
        const auto mean = chromaMixed(d, source, row * stride + static_cast<ptrdiff_t>(at), stride);
        hn::StoreU(narrow(bytes, mean), bytes, to + at);
    }
    return at;
}

HWY_INLINE void writeChromaSpan(const ChromaSource& source, ptrdiff_t stride, uint8_t* to,
                                ptrdiff_t toStride, size_t count, int rows) {
    for (int row = 0; row < rows; ++row, to += toStride) {
        const size_t done =
            writeChromaBy(hn::ScalableTag<uint16_t>(), source, row, stride, to, 0, count);
        writeChromaBy(hn::FixedTag<uint16_t, 8>(), source, row, stride, to, done, count);
    }
}

HWY_INLINE void mixChroma(const Tile& tile, const ChromaSource (&sources)[4], ptrdiff_t stride,
                          uint8_t* to, ptrdiff_t toStride, int rows) {
    const Predictions predictions(tile, [&](size_t k, uint8_t* pixels) HWY_ATTR {
        const hn::FixedTag<uint16_t, 8> d;
        const hn::FixedTag<uint8_t, 8> bytes;
        const ChromaSource source = sources[k];
        for (ptrdiff_t row = 0; row < kNodeStep / 2; ++row) {
            const auto words = chromaMixed(d, source, row * stride, stride);
            hn::StoreU(narrow(bytes, words), bytes, pixels + row * kNodeStep);
        }
    });
    HWY_ALIGN uint8_t pixels[kTilePixels / 2];
    predictions.mix(kChromaShares, kTilePixels / 2, pixels);
    copyTile(pixels, to, toStride, rows);
}

// Chroma is coarse: of a tile whose nodes are not apart, the mean of their motion will do.
void WriteChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 const Nv12Canvas& to) {
    const ChromaReader reader(older, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.chromaRows());
    for (int row = 0; row * kNodeStep / 2 < height; ++row) {
        const int rows = std::min(kNodeStep / 2, height - row * kNodeStep / 2);
        const auto out = [&](int x, int y) { return to.chroma + y / 2 * toStride + x; };
        forEachTile(
            plan, reader.places(), static_cast<int>(to.chromaBytes()), row,
            [&](const Tile& tile, int x, int y, int count) HWY_ATTR {
                writeChromaSpan(reader.at(*tile.nodes[0], x, y), stride, out(x, y), toStride,
                                static_cast<size_t>(count) * size_t{kNodeStep}, rows);
            },
            [&](const Tile& tile, int x, int y) HWY_ATTR {
                if (tile.sharedAlike() && !tile.apart()) {
                    writeChromaSpan(reader.at(tile.mean(), x, y), stride, out(x, y), toStride,
                                    size_t{kNodeStep}, rows);
                    return;
                }
                const ChromaSource sources[4] = {
                    reader.at(*tile.nodes[0], x, y), reader.at(*tile.nodes[1], x, y),
                    reader.at(*tile.nodes[2], x, y), reader.at(*tile.nodes[3], x, y)};
                mixChroma(tile, sources, stride, out(x, y), toStride, rows);
            });
    }
}

}  // namespace
}  // namespace qoz::host::vppservice::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qoz::host::vppservice {
namespace {

HWY_EXPORT(WriteChroma);

}  // namespace

void writeChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteChroma)(plan, older, newer, to);
}

}  // namespace qoz::host::vppservice
#endif
