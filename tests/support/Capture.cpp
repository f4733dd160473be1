// SPDX-License-Identifier: Apache-2.0
#include "support/Capture.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <ostream>
#include <thread>

namespace qoz::test {
namespace {

bool hasPrefix(const std::string& text) {
    return text.starts_with('[') && text.find("](") != std::string::npos;
}

std::string withoutPrefix(const std::string& text) {
    const auto end = text.find(") ");
    return hasPrefix(text) && end != std::string::npos ? text.substr(end + 2) : text;
}

}  // namespace

LogCapture::LogCapture() {
    mBefore = host::setLogSink([this](const host::LogLine& line) {
        if (onLine) onLine(withoutPrefix(line.text));
        const std::lock_guard lock(mLock);
        mLines.push_back(line);
    });
}

size_t LogCapture::count(const std::string& text, std::optional<int> priority) const {
    return static_cast<size_t>(std::ranges::count(texts(priority), text));
}

size_t LogCapture::countPrefixed(int maxPriority) const {
    const std::lock_guard lock(mLock);
    return static_cast<size_t>(std::ranges::count_if(mLines, [&](const host::LogLine& line) {
        return line.priority <= maxPriority && hasPrefix(line.text);
    }));
}

std::vector<std::string> LogCapture::texts(std::optional<int> priority) const {
    const std::lock_guard lock(mLock);
    std::vector<std::string> result;
    for (const auto& line : mLines) {
        if (line.priority == priority.value_or(line.priority))
            result.push_back(withoutPrefix(line.text));
    }
    return result;
}

void LogCapture::clear() {
    const std::lock_guard lock(mLock);
    mLines.clear();
}

void PrintTo(const Done& done, std::ostream* out) {
    *out << "{port " << done.port << ", slot " << done.slot << ", valid " << done.valid << ", ts "
         << done.timestamp << "}";
}

void Recorder::onBufferDone(uint32_t port, int32_t slot, uint32_t valid, uint64_t timestamp) {
    const Done done{port, slot, valid, timestamp};
    if (onDone) onDone(done);
    const std::lock_guard lock(mLock);
    mDone.push_back(done);
    mChanged.notify_all();
}

void Recorder::onConfigChanged(std::set<uint32_t> changes) {
    const std::lock_guard lock(mLock);
    mChanges.push_back(std::move(changes));
}

std::vector<Done> Recorder::done(std::optional<uint32_t> port) const {
    const std::lock_guard lock(mLock);
    std::vector<Done> result = mDone;
    if (port) std::erase_if(result, [port](const Done& d) { return d.port != *port; });
    return result;
}

std::vector<std::set<uint32_t>> Recorder::changes() const {
    const std::lock_guard lock(mLock);
    return mChanges;
}

void Recorder::clear() {
    const std::lock_guard lock(mLock);
    mDone.clear();
    mChanges.clear();
}

bool Recorder::waitFor(size_t count) const {
    std::unique_lock lock(mLock);
    return mChanged.wait_for(lock, kSoon, [&] { return mDone.size() >= count; });
}

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kSoon;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The state is the letter behind the thread's name, which is in brackets.
bool isAsleep(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string line((std::istreambuf_iterator<char>(file)), {});
    const size_t name = line.rfind(')');
    return name != std::string::npos && line.compare(name, 3, ") S") == 0;
}

}  // namespace qoz::test
