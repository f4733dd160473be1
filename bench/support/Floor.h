// SPDX-License-Identifier: Apache-2.0
// What any component must do for one packet, as plain statements: the floor of process_bench.
//
// A source packet: draw the target (and the three side buffers) from the pool of free entries, call
// the converter, keep them under the frame's timestamp, duplicate one descriptor for each buffer
// into a record of the service's own type through a native handle, count the buffer, call queueBuf,
// close the duplicates, keep the source as the next one's reference, and give the one before back
// to the client. An output buffer: read the clock for its timestamp, one descriptor, the same
// record, count, call.
//
// Locks, uncontended, one for each that such a component cannot do without: that of the pool of
// targets at drawing and at keeping, that of the side buffers likewise (only with side buffers),
// that of the session's state around record and call, that of the counts of buffers in the VPP.
// Left out although ours has it: a look at the pool under its lock when the record is made, since
// the buffers are at hand there.
#pragma once

#include <Rgb2Yuv.h>
#include <aidlcommonsupport/NativeHandle.h>
#include <fcntl.h>
#include <ui/GraphicBufferMapper.h>
#include <utils/Timers.h>

#include <mutex>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/Feed.h"

namespace qoz::bench {

class Floor {
  public:
    explicit Floor(bool sideBuffers) : mSideBuffers(sideBuffers) {
        for (auto& source : mSources)
            source = makeBuffer(kWidth, kHeight, kRgba);
        mConverter.Configure(mSources[0], kWidth, kHeight);
        for (uint64_t key = 1; key <= kEntries; ++key) {
            mTargets.entries.emplace(key, makeBuffer(kWidth, kHeight, kNv12));
            mTargets.free.insert(key);
            if (!sideBuffers) continue;
            mSides.entries.emplace(key, makeSides());
            mSides.free.insert(key);
        }
        mReturned = kEntries;
        mSent = kEntries;
    }

    void send() {
        const uint64_t key = ++mSent;
        Buffer& source = mSources[key % mSources.size()];
        auto target = mTargets.draw();
        auto sides = mSideBuffers ? mSides.draw() : Pool<Sides>::Entry();
        Buffer pixels = target.mapped();
        Sides side = sides ? sides.mapped() : Sides();
        convert(source, pixels, side);
        if (sides) mSides.keep(key, std::move(sides));
        mTargets.keep(key, std::move(target));
        queueSource(pixels, side, key);
        mReference = source;
        const int32_t released = std::exchange(mHeldSlot, static_cast<int32_t>(key % 3));
        mClient->onBufferDone(1, released, 1, 0);
    }

    void queueOutput() {
        const auto now = static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC));
        const std::lock_guard lock(mStateLock);
        vpp::VppBuffer record;
        describe(mOutput, record, now, outputCookie(0));
        queue(vpp::VppPort::OUTPUT, record);
    }

    void returnInput() {
        const uint64_t key = ++mReturned;
        mTargets.giveBack(key);
        if (mSideBuffers) mSides.giveBack(key);
    }

  private:
    using Buffer = android::sp<android::GraphicBuffer>;
    using Sides = std::tuple<Buffer, Buffer, Buffer>;
    static constexpr uint64_t kEntries = 16;  // as many as Feed warms up

    static Sides makeSides() {
        return {makeBuffer(80, 45, kRgba), makeBuffer(80, 45, kRgba),
                makeBuffer(kWidth / 2, kHeight / 2, kNv12)};
    }

    // What travelled, by the frame's timestamp, and which of it is free. An entry's node serves the
    // next frame: keeping takes no memory.
    template <typename Travelling>
    struct Pool {
        using Map = std::unordered_map<uint64_t, Travelling>;
        using Entry = typename Map::node_type;

        Entry draw() {
            const std::lock_guard hold(lock);
            Entry drawn = entries.extract(*free.begin());
            spare.push_back(free.extract(free.begin()));
            return drawn;
        }
        void keep(uint64_t key, Entry entry) {
            const std::lock_guard hold(lock);
            entry.key() = key;
            entries.insert(std::move(entry));
        }
        void giveBack(uint64_t key) {
            auto node = std::move(spare.back());
            spare.pop_back();
            node.value() = key;
            free.insert(std::move(node));
        }

        std::mutex lock;
        Map entries;
        std::set<uint64_t> free;
        std::vector<std::set<uint64_t>::node_type> spare;
    };

    void convert(Buffer& source, Buffer& target, Sides& side) {
        auto& [forward, backward, downscaled] = side;
        mConverter.RGBToNV12(source, target, downscaled, mSideBuffers, android::Fence::NO_FENCE);
        if (mSideBuffers) mConverter.MvBufferGeneration(mReference, source, forward, backward);
    }

    void queueSource(const Buffer& target, const Sides& side, uint64_t key) {
        const std::lock_guard lock(mStateLock);
        vpp::VppBuffer record;
        if (mSideBuffers) {
            record.metaBuffers.resize(3);
            attach(record.metaBuffers[0], "vpp.metabuf.mv.fw", std::get<0>(side));
            attach(record.metaBuffers[1], "vpp.metabuf.mv.bw", std::get<1>(side));
            attach(record.metaBuffers[2], "vpp.metabuf.scale.0p5", std::get<2>(side));
        }
        describe(target, record, key, kInternalCookie);
        record.pixelFilledLen = record.pixelAllocLen;
        queue(vpp::VppPort::INPUT, record);
    }

    void attach(vpp::VppMetaBuffer& meta, const char* name, const Buffer& from) {
        meta.metaName = name;
        meta.metaAllocLen = share(from, &meta.metaHandle);
    }

    void describe(const Buffer& from, vpp::VppBuffer& record, uint64_t timestamp, int64_t cookie) {
        record.pixelAllocLen = record.pixelSize = share(from, &record.pixelHandle);
        record.timestamp = timestamp;
        record.cookie = cookie;
    }

    uint32_t share(const Buffer& from, aidl::android::hardware::common::NativeHandle* to) {
        native_handle_t* handle = native_handle_create(1, 0);
        handle->data[0] = fcntl(from->handle->data[0], F_DUPFD_CLOEXEC, 0);
        *to = android::makeToAidl(handle);
        native_handle_delete(handle);
        uint64_t bytes = 0;
        mMapper.getAllocationSize(from->handle, &bytes);
        return static_cast<uint32_t>(bytes);
    }

    void queue(vpp::VppPort port, const vpp::VppBuffer& record) {
        {
            const std::lock_guard lock(mCountLock);
            ++mInVpp;
        }
        vpp::VppError result = vpp::VppError::VPP_OK;
        (void)mSession->queueBuf(port, record, &result);
    }

    const bool mSideBuffers;
    client::DoneCallback mNoClient;
    android::IQOZCallback* const mClient = &mNoClient;
    const std::shared_ptr<vpp::IVpp> mSession = ndk::SharedRefBase::make<NullSession>();
    android::GraphicBufferMapper& mMapper = android::GraphicBufferMapper::getInstance();
    android::Rgb2Yuv mConverter;
    std::array<Buffer, 3> mSources;
    Buffer mReference;
    Buffer mOutput = makeBuffer(kWidth, kHeight, kNv12);
    std::mutex mStateLock, mCountLock;
    Pool<Buffer> mTargets;
    Pool<Sides> mSides;
    uint64_t mInVpp = 0;
    uint64_t mSent = 0;
    uint64_t mReturned = 0;
    int32_t mHeldSlot = 0;
};

}  // namespace qoz::bench
