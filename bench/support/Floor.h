// SPDX-License-Identifier: Apache-2.0
// The work that every component must do for one packet, written as plain statements. process_bench
// compares the component with it; the time of this code is the floor.
//
// For a source packet: take the target (and the three side buffers) from the pool of free buffers,
// call the converter, store the buffers under the timestamp of the frame, duplicate one descriptor
// for each buffer into a record of the service's type by way of a native handle, count the buffer,
// call queueBuf, close the duplicates, keep the source as the reference frame of the next, and
// return the previous source to the client. For an output buffer: read the clock for its timestamp,
// then duplicate one descriptor, fill the same record, count the buffer and call queueBuf.
//
// Each lock that a component needs is taken without contention: the lock of the target pool when a
// buffer is taken and when it is stored, that of the side buffers likewise (if there are any), that
// of the session's state while the record is made and queued, and that of the counts of buffers in
// the VPP. Our component also looks up the buffers in the pool, under its lock, when it makes the
// record. This code does not, because it has the buffers at hand.
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

// Has the same functions as Feed. Used by one thread.
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
    static constexpr uint64_t kEntries = 16;  // as many as Feed has

    static Sides makeSides() {
        return {makeBuffer(80, 45, kRgba), makeBuffer(80, 45, kRgba),
                makeBuffer(kWidth / 2, kHeight / 2, kNv12)};
    }

    // The buffers by the timestamp of the frame that used them last, and the timestamps of those
    // that are free. Nodes of the containers are reused, so that no memory is allocated.
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
