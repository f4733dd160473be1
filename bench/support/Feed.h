// SPDX-License-Identifier: Apache-2.0
// A component with a session from the bench, and the buffers that the bench sends through it.
#pragma once

#include <client/DoneCallback.h>
#include <host/control.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "support/Buffers.h"
#include "support/NullSession.h"

namespace qoz::bench {

constexpr int64_t kInternalCookie = 0x10000;  // the cookie of an internal buffer

constexpr int64_t outputCookie(int32_t slot) {
    return static_cast<int32_t>(static_cast<uint32_t>(slot) | 0x80000000U);
}

// A component that doubles the frame rate and keeps the size, with one of everything else: session,
// client, packets and records. A bench calls the functions in the order of a stream. Used by one
// thread.
class Feed {
  public:
    struct Setup {
        bool sideBuffers = true;  // whether frames have motion vectors and half-size copies
        int entries = 16;         // number of free buffers in the pools at the beginning
        std::shared_ptr<NullSession> session = ndk::SharedRefBase::make<NullSession>();
        android::IQOZCallback* client = nullptr;  // null for a client that does nothing
        int format = kRgba;                       // of the sources
    };

    explicit Feed(const Setup& setup) : mSession(setup.session) {
        host::setProperty("debug.vpp.frc.game.ext.mbi", setup.sideBuffers ? "true" : "false");
        const NullService service(mSession);
        auto* client = setup.client != nullptr ? setup.client : &mNoClient;
        if (!mComponent->enable("bench", client, false)) fail("enable");
        mComponent->config(kWidth, kHeight, static_cast<uint32_t>(setup.format), {1, 0, 1, 0},
                           true);
        for (size_t i = 0; i < mPackets.size(); ++i) {
            mPackets[i] = {{static_cast<int32_t>(i),
                            makeBuffer(kWidth, kHeight, setup.format),
                            nullptr,
                            0,
                            {}}};
        }
        // Twice, because the very first frame has no motion vectors, so that one set of buffers for
        // them is missing after the first time.
        for (int i = 0; i < 2; ++i)
            fillPools(setup.entries);
    }
    ~Feed() { mComponent->disable(); }

    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    // Calls process() with the next source packet.
    void send() {
        auto& packet = mPackets[mSent % mPackets.size()];
        packet[0].timestamp = static_cast<int64_t>(++mSent) * 16000000;
        if (mComponent->process(&packet, nullptr) != 0) fail("process");
    }

    // Calls process() with one output buffer.
    void queueOutput(int32_t slot = 0) {
        mOutput.slot = slot;
        if (mComponent->process(nullptr, &mOutput) != 0) fail("process");
    }

    // Returns the oldest source frame as the service would.
    void returnInput() {
        mInput.timestamp = ++mReturned * 16000;
        (void)mSession->callbacks->inputBufferDone(mInput, &mResult);
    }

    // Returns an output buffer with a frame in it as the service would.
    void returnOutput(int32_t slot) {
        mFrame.cookie = outputCookie(slot);
        (void)mSession->callbacks->outputBufferDone(mFrame, &mResult);
    }

  private:
    void fillPools(int entries) {
        for (int i = 0; i < entries; ++i)
            send();
        while (mReturned < mSent)
            returnInput();
    }
    [[noreturn]] static void fail(const char* what) {
        std::fprintf(stderr, "bench: %s failed\n", what);
        std::exit(1);
    }

    const std::shared_ptr<NullSession> mSession;
    client::DoneCallback mNoClient;
    const std::shared_ptr<android::VppComponent> mComponent =
        std::make_shared<android::VppComponent>();
    std::array<std::vector<android::QOZBufferInfo>, 3> mPackets;
    android::QOZBufferInfo mOutput{0, makeBuffer(kWidth, kHeight, kNv12), nullptr, 0, {}};
    vpp::VppBuffer mInput = [] {
        vpp::VppBuffer record;
        record.cookie = kInternalCookie;
        return record;
    }();
    vpp::VppBuffer mFrame = [] {
        vpp::VppBuffer record;
        record.pixelFilledLen = 1;
        return record;
    }();
    vpp::VppError mResult = vpp::VppError::VPP_OK;
    uint64_t mSent = 0;
    uint64_t mReturned = 0;
};

}  // namespace qoz::bench
