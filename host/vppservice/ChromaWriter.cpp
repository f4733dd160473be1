// SPDX-License-Identifier: Apache-2.0
// Writes the chroma of an interpolated frame.
#include "host/vppservice/FrameWriter.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/ChromaWriter.cpp"
#include <hwy/foreach_target.h>  // compiles the rest of this file for each target
#include <hwy/highway.h>
// These follow it because they are compiled for each target too.
#include "host/vppservice/Tiles-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

constexpr Shares kChromaShares = sharesOf(2, kNodeStep / 2);

// The places in both sources that one node predicts a tile's chroma from. Chroma is interleaved;
// both bytes of a sample are treated alike. A place is a pointer to a sample and eighths of a
// sample beyond it.
struct ChromaSource {
    const uint8_t* older;
    const uint8_t* newer;
    int olderX, olderY;  // eighths of a sample to the right of the pointer, and below it
    int newerX, newerY;
    int newerShare;
};

// Finds the places that a node predicts the chroma of a tile from.
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

constexpr int kChromaRows = kNodeStep / 2;  // chroma rows of a tile

// The rows of a tile in vectors of words, one byte in each word.
template <class D>
struct ChromaRows {
    hn::VFromD<D> rows[kChromaRows];
};

// Reads samples between pixels, linearly from the four samples around each place.
template <class D>
HWY_INLINE ChromaRows<D> sampled(D d, const uint8_t* p, int x, int y, ptrdiff_t stride) {
    const hn::Rebind<uint8_t, D> bytes;
    const auto load = [d, bytes](const uint8_t* q)
                          HWY_ATTR { return hn::PromoteTo(d, hn::LoadU(bytes, q)); };
    const auto right = hn::Set(d, static_cast<uint16_t>(x));
    const auto across = [&](const uint8_t* q) HWY_ATTR {
        const auto left = load(q);
        return hn::Add(hn::ShiftLeft<3>(left), hn::Mul(hn::Sub(load(q + 2), left), right));
    };
    ChromaRows<D> out;
    if (x == 0 && y == 0) {
        for (auto& row : out.rows) {
            row = load(p);
            p += stride;
        }
        return out;
    }
    if (y == 0) {
        for (auto& row : out.rows) {
            row = hn::ShiftRight<3>(hn::Add(across(p), hn::Set(d, 4)));
            p += stride;
        }
        return out;
    }
    const auto below = hn::Set(d, static_cast<uint16_t>(y));
    auto top = across(p);
    for (auto& row : out.rows) {
        p += stride;
        const auto bottom = across(p);
        const auto sum = hn::Add(hn::ShiftLeft<3>(top), hn::Mul(hn::Sub(bottom, top), below));
        row = hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, 32)));
        top = bottom;
    }
    return out;
}

template <class D>
// Mixes both sources by their shares.
HWY_INLINE ChromaRows<D> chromaMixed(D d, const ChromaSource& source, ptrdiff_t offset,
                                     ptrdiff_t stride) {
    const auto older = [&]() HWY_ATTR {
        return sampled(d, source.older + offset, source.olderX, source.olderY, stride);
    };
    const auto newer = [&]() HWY_ATTR {
        return sampled(d, source.newer + offset, source.newerX, source.newerY, stride);
    };
    if (source.newerShare == 0) return older();
    if (source.newerShare == kWholeShare) return newer();
    ChromaRows<D> out = older();
    const ChromaRows<D> other = newer();
    if (2 * source.newerShare == kWholeShare) {
        for (size_t i = 0; i < kChromaRows; ++i)
            out.rows[i] = hn::AverageRound(out.rows[i], other.rows[i]);
        return out;
    }
    const auto share = hn::Set(d, static_cast<uint16_t>(source.newerShare));
    for (size_t i = 0; i < kChromaRows; ++i) {
        const auto from = out.rows[i];
        const auto sum =
            hn::Add(hn::ShiftLeft<6>(from), hn::Mul(hn::Sub(other.rows[i], from), share));
        out.rows[i] = hn::ShiftRight<6>(hn::Add(sum, hn::Set(d, kWholeShare / 2)));
    }
    return out;
}

// Writes `count` bytes of each row, no fewer than a vector's lanes. The last vector of a row may
// overlap the one before.
template <class D>
HWY_INLINE void writeChromaBy(D d, const ChromaSource& source, ptrdiff_t stride, uint8_t* to,
                              ptrdiff_t toStride, size_t count, int rows) {
    const hn::Rebind<uint8_t, D> bytes;
    const auto last = static_cast<ptrdiff_t>(count - hn::Lanes(d));
    const auto write = [&](ptrdiff_t at) HWY_ATTR {
        const ChromaRows<D> mean = chromaMixed(d, source, at, stride);
        for (int row = 0; row < rows; ++row)
            hn::StoreU(narrow(bytes, mean.rows[row]), bytes, to + row * toStride + at);
    };
    for (ptrdiff_t at = 0; at < last; at += static_cast<ptrdiff_t>(hn::Lanes(d)))
        write(at);
    write(last);
}

// Writes a span of tiles that move alike, with the widest vectors that fit.
HWY_INLINE void writeChromaSpan(const ChromaSource& source, ptrdiff_t stride, uint8_t* to,
                                ptrdiff_t toStride, size_t count, int rows) {
    const hn::ScalableTag<uint16_t> most;
    const hn::CappedTag<uint16_t, 16> fewer;
    if (count >= hn::Lanes(most)) {
        writeChromaBy(most, source, stride, to, toStride, count, rows);
    } else if (count >= hn::Lanes(fewer)) {
        writeChromaBy(fewer, source, stride, to, toStride, count, rows);
    } else {
        writeChromaBy(hn::FixedTag<uint16_t, 8>(), source, stride, to, toStride, count, rows);
    }
}

// Mixes the predictions of a tile's four nodes by distance.
HWY_INLINE void mixChroma(const Tile& tile, const ChromaSource (&sources)[4], ptrdiff_t stride,
                          uint8_t* to, ptrdiff_t toStride, int rows) {
    const Predictions predictions(tile, [&](size_t k, uint8_t* pixels) HWY_ATTR {
        const ChromaSource source = sources[k];
        writeChromaBy(hn::FixedTag<uint16_t, 8>(), source, stride, pixels, kNodeStep, kNodeStep,
                      kChromaRows);
    });
    HWY_ALIGN uint8_t pixels[kTilePixels / 2];
    predictions.mix(kChromaShares, kTilePixels / 2, pixels);
    copyTile(pixels, to, toStride, rows);
}

// Writes the chroma of rows of tiles. Chroma is coarse, so a tile whose nodes move almost alike is
// written along the mean of their motions.
void WriteChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 TileRows tiles, const Nv12Canvas& to) {
    const ChromaReader reader(older, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.chromaRows());
    for (int row = tiles.first; row < tiles.end; ++row) {
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
                 TileRows tiles, const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteChroma)(plan, older, newer, tiles, to);
}

}  // namespace qoz::host::vppservice
#endif
