// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/FrameWriter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/vppservice/FrameWriter.cpp"
#include <hwy/foreach_target.h>  // compiles what follows once for each target
#include <hwy/highway.h>
// After it, as it is compiled once for each target too.
#include "host/vppservice/Window-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qoz::host::vppservice::HWY_NAMESPACE {
namespace {

// Quarters of a pixel: nodes further apart move as different things.
constexpr int kApart = 4;

// Squared grey levels that two sources may differ by through noise and fractions of a pixel.
constexpr float kAgreement = 12;
constexpr float kOneSided = 100;  // what is taken for the disagreement where there is but one

// Pixels of a tile, row after row without gaps. Chroma has half as many rows.
constexpr size_t kTilePixels = size_t{kNodeStep} * kNodeStep;

// For each byte of a tile the shares, of 16, of the right-hand nodes and of the lower ones.
struct Shares {
    HWY_ALIGN uint16_t right[kTilePixels];
    HWY_ALIGN uint16_t below[kTilePixels];
};

// `wide` bytes of a row lie at one place across, `tall` rows between two nodes.
constexpr Shares sharesOf(size_t wide, size_t tall) {
    constexpr size_t kStep = kNodeStep;
    Shares shares{};
    for (size_t i = 0; i < kTilePixels; ++i) {
        shares.right[i] = static_cast<uint16_t>((i % kStep / wide * 2 + 1) * wide);
        shares.below[i] = static_cast<uint16_t>((i / kStep * 2 + 1) * (kStep / tall));
    }
    return shares;
}
constexpr Shares kLumaShares = sharesOf(1, kNodeStep);
constexpr Shares kChromaShares = sharesOf(2, kNodeStep / 2);

// One prediction: from both sources, each with its share.
struct LumaSource {
    PixelPair older;
    PixelPair asBright;  // the older source, as bright as the newer
    PixelPair newer;
    int newerShare;  // of kWholeShare

    bool even() const { return newerShare * 2 == kWholeShare; }
};

// Interleaved chroma, both bytes of a sample alike; places are eighths of a sample.
struct ChromaSource {
    const uint8_t* older;
    const uint8_t* newer;
    int olderX, olderY;  // eighths right and down of the pointers
    int newerX, newerY;
    int newerShare;
};

// The nodes around a tile: top left, top right, bottom left, bottom right.
struct Tile {
    const NodeMotion* nodes[4];

    HWY_INLINE Tile(const MotionPlan& plan, int column, int row)
        : nodes{&plan.at(column, row), &plan.at(column + 1, row), &plan.at(column, row + 1),
                &plan.at(column + 1, row + 1)} {}

    HWY_INLINE bool alike() const {
        return *nodes[0] == *nodes[1] && *nodes[0] == *nodes[2] && *nodes[0] == *nodes[3];
    }
    HWY_INLINE bool apart() const {
        const auto far = [](const NodeMotion& a, const NodeMotion& b) {
            const int dx = (a.newerX - a.olderX) - (b.newerX - b.olderX);
            const int dy = (a.newerY - a.olderY) - (b.newerY - b.olderY);
            return std::max(std::abs(dx), std::abs(dy)) > kApart;
        };
        return far(*nodes[0], *nodes[3]) || far(*nodes[1], *nodes[2]) || far(*nodes[0], *nodes[1]);
    }
    HWY_INLINE bool sharedAlike() const {
        return nodes[0]->newerShare == nodes[1]->newerShare &&
               nodes[0]->newerShare == nodes[2]->newerShare &&
               nodes[0]->newerShare == nodes[3]->newerShare;
    }
    // Of nodes that are not apart.
    HWY_INLINE NodeMotion mean() const {
        const auto of = [this](int16_t NodeMotion::*part) {
            return static_cast<int16_t>(
                (nodes[0]->*part + nodes[1]->*part + nodes[2]->*part + nodes[3]->*part + 2) >> 2);
        };
        return {of(&NodeMotion::olderX), of(&NodeMotion::olderY), of(&NodeMotion::newerX),
                of(&NodeMotion::newerY), nodes[0]->newerShare};
    }
};

// Finds where a node's motion leads from a tile in both sources.
class Reader {
  public:
    // `asBright` is the older source, as bright as the newer: the same object where there is no
    // fade.
    Reader(const SubpixelPlanes& older, const SubpixelPlanes& asBright, const SubpixelPlanes& newer)
        : mOlder(older),
          mAsBright(asBright),
          mNewer(newer),
          mLastX(4 * (newer.width() - kNodeStep)),
          mLastY(4 * (newer.height() - kNodeStep)) {}

    HWY_INLINE LumaSource luma(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        const QuarterPlace older = clamped(x, y, node.olderX, node.olderY, &inOlder);
        const QuarterPlace newer = clamped(x, y, node.newerX, node.newerY, &inNewer);
        return {mOlder.at(older), mAsBright.at(older), mNewer.at(newer),
                share(node, inOlder, inNewer)};
    }
    HWY_INLINE ChromaSource chroma(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        const QuarterPlace older = clamped(x, y, node.olderX, node.olderY, &inOlder);
        const QuarterPlace newer = clamped(x, y, node.newerX, node.newerY, &inNewer);
        return {mOlder.chroma(older.x >> 3, older.y >> 3),
                mNewer.chroma(newer.x >> 3, newer.y >> 3),
                older.x & 7,
                older.y & 7,
                newer.x & 7,
                newer.y & 7,
                share(node, inOlder, inNewer)};
    }
    HWY_INLINE bool inside(const NodeMotion& node, int x, int y) const {
        bool inOlder = false, inNewer = false;
        clamped(x, y, node.olderX, node.olderY, &inOlder);
        clamped(x, y, node.newerX, node.newerY, &inNewer);
        return inOlder && inNewer;
    }

  private:
    // Further out than this there is no rim to read.
    static constexpr int kOut = SubpixelPlanes::kRim - 8;

    // All of a place lies well within the rim for a tile.
    HWY_INLINE QuarterPlace clamped(int x, int y, int dx, int dy, bool* inside) const {
        const int toX = 4 * x + dx;
        const int toY = 4 * y + dy;
        *inside = toX >= -4 && toY >= -4 && toX <= std::max(4 * x, mLastX) + 4 &&
                  toY <= std::max(4 * y, mLastY) + 4;
        return {std::clamp(toX, -4 * kOut, mLastX + 4 * kOut),
                std::clamp(toY, -4 * kOut, mLastY + 4 * kOut)};
    }
    // Where the motion leads out of one source, the other alone is used.
    HWY_INLINE static int share(const NodeMotion& node, bool inOlder, bool inNewer) {
        return inOlder == inNewer ? node.newerShare : inNewer ? kWholeShare : 0;
    }

    const SubpixelPlanes& mOlder;
    const SubpixelPlanes& mAsBright;
    const SubpixelPlanes& mNewer;
    const int mLastX;
    const int mLastY;
};

// Calls span(tile, x, y, columns) for tiles alike, as many in a row as there are, and one(tile, x,
// y) for the others.
template <typename Span, typename One>
HWY_INLINE void forEachTile(const MotionPlan& plan, const Reader& reader, int width, int row,
                            Span span, One one) {
    const int y = row * kNodeStep;
    const int columns = plan.columns() - 1;
    for (int column = 0; column < columns;) {
        // The last tile of a row that eight does not divide overlaps the one before.
        const int x = std::min(column * kNodeStep, width - kNodeStep);
        const Tile tile(plan, column, row);
        if (!tile.alike()) {
            one(tile, x, y);
            ++column;
            continue;
        }
        const NodeMotion& node = *tile.nodes[0];
        int count = 1;
        if (reader.inside(node, x, y)) {
            const int most = std::min(columns, width / kNodeStep);
            while (column + count < most && plan.at(column + count + 1, row) == node &&
                   plan.at(column + count + 1, row + 1) == node) {
                ++count;
            }
            while (count > 1 && !reader.inside(node, x + (count - 1) * kNodeStep, y))
                --count;
        }
        span(tile, x, y, count);
        column += count;
    }
}

// Words below 256 as bytes.
template <class D, class V>
HWY_INLINE hn::VFromD<D> narrow(D bytes, V words) {
    return hn::DemoteTo(bytes, hn::BitCast(hn::RebindToSigned<hn::DFromV<V>>(), words));
}

// Both sources by their shares.
template <class D>
HWY_INLINE hn::VFromD<D> mixed(D d, const LumaSource& source, ptrdiff_t offset) {
    if (source.newerShare == 0) return meanOf(d, source.older, offset);
    if (source.newerShare == kWholeShare) return meanOf(d, source.newer, offset);
    const auto older = meanOf(d, source.older, offset);
    const auto newer = meanOf(d, source.newer, offset);
    if (source.even()) return hn::AverageRound(older, newer);
    const hn::Rebind<uint16_t, hn::Half<D>> wide;
    const hn::Half<D> half;
    const auto share = hn::Set(wide, static_cast<uint16_t>(source.newerShare));
    const auto rest = hn::Set(wide, static_cast<uint16_t>(kWholeShare - source.newerShare));
    const auto mix = [&](auto a, auto b) HWY_ATTR {
        const auto sum =
            hn::Add(hn::Mul(hn::PromoteTo(wide, a), rest), hn::Mul(hn::PromoteTo(wide, b), share));
        return hn::ShiftRight<6>(hn::Add(sum, hn::Set(wide, kWholeShare / 2)));
    };
    const auto low = mix(hn::LowerHalf(half, older), hn::LowerHalf(half, newer));
    const auto high = mix(hn::UpperHalf(half, older), hn::UpperHalf(half, newer));
    return hn::Combine(d, narrow(half, high), narrow(half, low));
}

template <class D>
HWY_INLINE size_t writeSpanBy(D d, const LumaSource& source, ptrdiff_t from, uint8_t* to, size_t at,
                              size_t count) {
    for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d))
        hn::StoreU(mixed(d, source, from + static_cast<ptrdiff_t>(at)), d, to + at);
    return at;
}

HWY_INLINE void writeSpan(const LumaSource& source, ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, size_t count, int rows) {
    for (int row = 0; row < rows; ++row, to += toStride) {
        const ptrdiff_t from = row * stride;
        const size_t done = writeSpanBy(hn::ScalableTag<uint8_t>(), source, from, to, 0, count);
        writeSpanBy(hn::FixedTag<uint8_t, 8>(), source, from, to, done, count);
    }
}

// What each of a tile's nodes predicts for all of it. Nodes that move alike share one prediction.
class Predictions {
  public:
    // predict(k, to) writes what node k predicts.
    template <class Predict>
    HWY_INLINE Predictions(const Tile& tile, const Predict& predict) {
        for (size_t k = 0; k < 4; ++k) {
            size_t same = 0;
            while (same < k && *tile.nodes[same] != *tile.nodes[k])
                ++same;
            mOf[k] = mPixels[same];
            if (same == k) predict(k, mPixels[k]);
        }
    }

    // Mixes the first `count` bytes by distance.
    HWY_INLINE void mix(const Shares& shares, size_t count, uint8_t* to) const {
        const hn::CappedTag<uint16_t, 32> d;
        const hn::Rebind<uint8_t, decltype(d)> bytes;
        for (size_t i = 0; i < count; i += hn::Lanes(d)) {
            const auto right = hn::Load(d, shares.right + i);
            // left * 16 + (right - left) * share; differences wrap around and back.
            const auto mean = [&](auto from, auto other, auto share) HWY_ATTR {
                return hn::Add(hn::ShiftLeft<4>(from), hn::Mul(hn::Sub(other, from), share));
            };
            const auto load = [&](size_t k) HWY_ATTR {
                return hn::PromoteTo(d, hn::LoadU(bytes, mOf[k] + i));
            };
            const auto top = mean(load(0), load(1), right);
            const auto bottom = mean(load(2), load(3), right);
            const auto sum = mean(top, bottom, hn::Load(d, shares.below + i));
            hn::StoreU(narrow(bytes, hn::ShiftRight<8>(hn::Add(sum, hn::Set(d, 128)))), bytes,
                       to + i);
        }
    }

  private:
    HWY_ALIGN uint8_t mPixels[4][kTilePixels];
    const uint8_t* mOf[4];
};

// Rows of eight bytes to where they belong.
HWY_INLINE void copyTile(const uint8_t* pixels, uint8_t* to, ptrdiff_t toStride, int rows) {
    for (int row = 0; row < rows; ++row)
        std::memcpy(to + row * toStride, pixels + ptrdiff_t{row} * kNodeStep, kNodeStep);
}

HWY_INLINE void mixTile(const Tile& tile, const LumaSource (&sources)[4], ptrdiff_t stride,
                        uint8_t* to, ptrdiff_t toStride, int rows) {
    const Predictions predictions(tile, [&](size_t k, uint8_t* pixels) HWY_ATTR {
        const hn::FixedTag<uint8_t, 8> d;
        const LumaSource source = sources[k];
        for (ptrdiff_t row = 0; row < kNodeStep; ++row)
            hn::StoreU(mixed(d, source, row * stride), d, pixels + row * kNodeStep);
    });
    HWY_ALIGN uint8_t pixels[kTilePixels];
    predictions.mix(kLumaShares, kTilePixels, pixels);
    copyTile(pixels, to, toStride, rows);
}

// By distance, and the more by how well the two sources of a prediction agree at each pixel.
HWY_INLINE void weighTile(const LumaSource (&sources)[4], ptrdiff_t stride, uint8_t* to,
                          ptrdiff_t toStride, int rows) {
    const hn::FixedTag<uint8_t, 8> eight;
    HWY_ALIGN uint8_t older[4][kTilePixels];
    HWY_ALIGN uint8_t asBright[4][kTilePixels];
    HWY_ALIGN uint8_t newer[4][kTilePixels];
    const bool fades = sources[0].older.first != sources[0].asBright.first;
    const auto& compared = fades ? asBright : older;
    for (size_t k = 0; k < 4; ++k) {
        const LumaSource source = sources[k];
        for (ptrdiff_t row = 0; row < kNodeStep; ++row) {
            const ptrdiff_t at = row * kNodeStep;
            hn::StoreU(meanOf(eight, source.older, row * stride), eight, older[k] + at);
            hn::StoreU(meanOf(eight, source.newer, row * stride), eight, newer[k] + at);
            if (!fades) continue;
            hn::StoreU(meanOf(eight, source.asBright, row * stride), eight, asBright[k] + at);
        }
    }

    const hn::CappedTag<float, 16> d;
    const hn::Rebind<int32_t, decltype(d)> ints;
    const hn::Rebind<uint16_t, decltype(d)> words;
    const hn::Rebind<uint8_t, decltype(d)> bytes;
    HWY_ALIGN uint8_t pixels[kTilePixels];
    for (size_t i = 0; i < kTilePixels; i += hn::Lanes(d)) {
        const auto share = [&](const uint16_t* p) HWY_ATTR {
            return hn::ConvertTo(d, hn::PromoteTo(ints, hn::Load(words, p + i)));
        };
        const auto load = [&](const uint8_t* p) HWY_ATTR {
            return hn::ConvertTo(d, hn::PromoteTo(ints, hn::LoadU(bytes, p + i)));
        };
        const auto right = share(kLumaShares.right);
        const auto below = share(kLumaShares.below);
        const auto left = hn::Sub(hn::Set(d, 16), right);
        const auto above = hn::Sub(hn::Set(d, 16), below);
        auto sum = hn::Zero(d);
        auto weights = hn::Zero(d);
        for (size_t k = 0; k < 4; ++k) {
            const int newerShare = sources[k].newerShare;
            const auto from = load(older[k]);
            const auto until = load(newer[k]);
            const auto unlike = hn::Sub(load(compared[k]), until);
            const bool both = newerShare > 0 && newerShare < kWholeShare;
            const auto doubt =
                both ? hn::MulAdd(unlike, unlike, hn::Set(d, kAgreement)) : hn::Set(d, kOneSided);
            const auto near = hn::Mul(k % 2 == 0 ? left : right, k < 2 ? above : below);
            // Nearly will do: the weights are summed as they are.
            const auto weight = hn::Mul(near, hn::ApproximateReciprocal(hn::Mul(doubt, doubt)));
            const auto part = hn::Set(d, static_cast<float>(newerShare) / kWholeShare);
            sum = hn::MulAdd(hn::MulAdd(hn::Sub(until, from), part, from), weight, sum);
            weights = hn::Add(weights, weight);
        }
        const auto mean = hn::NearestInt(hn::Div(sum, weights));
        hn::StoreU(hn::DemoteTo(bytes, mean), bytes, pixels + i);
    }
    copyTile(pixels, to, toStride, rows);
}

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

void WriteLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, const Nv12Canvas& to) {
    const Reader reader(older, asBright, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.size.height);
    for (int row = 0; row * kNodeStep < height; ++row) {
        const int rows = std::min(kNodeStep, height - row * kNodeStep);
        const auto out = [&](int x, int y) { return to.luma + y * toStride + x; };
        forEachTile(
            plan, reader, static_cast<int>(to.size.width), row,
            [&](const Tile& tile, int x, int y, int count) HWY_ATTR {
                writeSpan(reader.luma(*tile.nodes[0], x, y), stride, out(x, y), toStride,
                          static_cast<size_t>(count) * size_t{kNodeStep}, rows);
            },
            [&](const Tile& tile, int x, int y) HWY_ATTR {
                const LumaSource sources[4] = {
                    reader.luma(*tile.nodes[0], x, y), reader.luma(*tile.nodes[1], x, y),
                    reader.luma(*tile.nodes[2], x, y), reader.luma(*tile.nodes[3], x, y)};
                if (tile.apart()) {
                    weighTile(sources, stride, out(x, y), toStride, rows);
                } else {
                    mixTile(tile, sources, stride, out(x, y), toStride, rows);
                }
            });
    }
}

// Chroma is coarse: of a tile whose nodes are not apart, the mean of their motion will do.
void WriteChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 const Nv12Canvas& to) {
    const Reader reader(older, older, newer);
    const ptrdiff_t stride = newer.stride();
    const auto toStride = static_cast<ptrdiff_t>(to.stride);
    const auto height = static_cast<int>(to.chromaRows());
    for (int row = 0; row * kNodeStep / 2 < height; ++row) {
        const int rows = std::min(kNodeStep / 2, height - row * kNodeStep / 2);
        const auto out = [&](int x, int y) { return to.chroma + y / 2 * toStride + x; };
        forEachTile(
            plan, reader, static_cast<int>(to.chromaBytes()), row,
            [&](const Tile& tile, int x, int y, int count) HWY_ATTR {
                x &= ~1;
                writeChromaSpan(reader.chroma(*tile.nodes[0], x, y), stride, out(x, y), toStride,
                                static_cast<size_t>(count) * size_t{kNodeStep}, rows);
            },
            [&](const Tile& tile, int x, int y) HWY_ATTR {
                x &= ~1;
                if (tile.sharedAlike() && !tile.apart()) {
                    writeChromaSpan(reader.chroma(tile.mean(), x, y), stride, out(x, y), toStride,
                                    size_t{kNodeStep}, rows);
                    return;
                }
                const ChromaSource sources[4] = {
                    reader.chroma(*tile.nodes[0], x, y), reader.chroma(*tile.nodes[1], x, y),
                    reader.chroma(*tile.nodes[2], x, y), reader.chroma(*tile.nodes[3], x, y)};
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

HWY_EXPORT(WriteLuma);
HWY_EXPORT(WriteChroma);

}  // namespace

void writeLuma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& asBright,
               const SubpixelPlanes& newer, const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteLuma)(plan, older, asBright, newer, to);
}

void writeChroma(const MotionPlan& plan, const SubpixelPlanes& older, const SubpixelPlanes& newer,
                 const Nv12Canvas& to) {
    HWY_DYNAMIC_DISPATCH(WriteChroma)(plan, older, newer, to);
}

}  // namespace qoz::host::vppservice
#endif
