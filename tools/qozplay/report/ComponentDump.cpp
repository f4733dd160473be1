// SPDX-License-Identifier: Apache-2.0
#include "qozplay/report/ComponentDump.h"

#include <android/log.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>

namespace qozplay {

std::vector<std::string> dumpLines(const android::VppComponent& component) {
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    const std::unique_ptr<FILE, int (*)(FILE*)> text(fd < 0 ? nullptr : fdopen(fd, "r"), fclose);
    if (text == nullptr) {
        if (fd >= 0) close(fd);
        return {};
    }
    component.dump(fd);
    lseek(fd, 0, SEEK_SET);
    std::vector<std::string> lines;
    std::array<char, 512> line{};
    while (fgets(line.data(), line.size(), text.get()) != nullptr) {
        lines.emplace_back(line.data());
        if (lines.back().ends_with('\n')) lines.back().pop_back();
    }
    return lines;
}

void logDump(const android::VppComponent& component) {
    for (const std::string& line : dumpLines(component))
        __android_log_print(ANDROID_LOG_INFO, "qozplay", "%s", line.c_str());
}

}  // namespace qozplay
