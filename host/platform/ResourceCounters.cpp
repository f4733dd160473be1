// SPDX-License-Identifier: Apache-2.0
#include <dirent.h>
#include <host/control.h>
#include <host/platform/ResourceCounters.h>

#include <memory>

namespace qoz::host {

ResourceCounters& resourceCounters() {
    static ResourceCounters instance;
    return instance;
}

Counters counters() {
    const ResourceCounters& c = resourceCounters();
    return {
        .graphicBuffersMade = c.graphicBuffersMade.load(std::memory_order_relaxed),
        .graphicBuffersLive = c.graphicBuffersLive.load(std::memory_order_relaxed),
        .graphicBytesLive = c.graphicBytesLive.load(std::memory_order_relaxed),
        .nativeHandlesLive = c.nativeHandlesLive.load(std::memory_order_relaxed),
        .bindersLive = c.bindersLive.load(std::memory_order_relaxed),
        .sessionsMade = c.sessionsMade.load(std::memory_order_relaxed),
        .sessionsLive = c.sessionsLive.load(std::memory_order_relaxed),
        .memoryQueuedTwice = c.memoryQueuedTwice.load(std::memory_order_relaxed),
    };
}

int openDescriptors() {
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir("/proc/self/fd"), closedir);
    if (dir == nullptr) return -1;
    int entries = 0;
    while (readdir(dir.get()) != nullptr)
        ++entries;
    return entries - 3;  // without ".", ".." and the descriptor of the directory itself
}

}  // namespace qoz::host
