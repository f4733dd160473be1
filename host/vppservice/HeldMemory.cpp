// SPDX-License-Identifier: Apache-2.0
#include "host/vppservice/HeldMemory.h"

#include <host/platform/ResourceCounters.h>
#include <sys/stat.h>

#include <algorithm>

namespace qoz::host::vppservice {

HeldMemory::Hold HeldMemory::hold(int fd, Use use) {
    struct stat file = {};
    if (fstat(fd, &file) != 0) return {};
    const Id id{file.st_dev, file.st_ino};
    const std::lock_guard lock(mLock);
    const bool isTwice = isHeldForAnother(id, use);
    const auto added = mUses.emplace(id, use);
    if (isTwice) resourceCounters().memoryQueuedTwice.fetch_add(1, std::memory_order_relaxed);
    return {shared_from_this(), added};
}

// Returns whether the memory is held already, other than as a side buffer that both frames share.
bool HeldMemory::isHeldForAnother(const Id& id, Use use) const {
    const auto [begin, end] = mUses.equal_range(id);
    if (!use) return begin != end;
    return std::any_of(begin, end, [&](const auto& held) { return held.second != use; });
}

void HeldMemory::release(Uses::iterator use) {
    const std::lock_guard lock(mLock);
    mUses.erase(use);
}

}  // namespace qoz::host::vppservice
