// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace android {

// Provides one instance of TYPE for the whole process, created on first use.
template <typename TYPE>
class Singleton {
  public:
    static TYPE& getInstance() {
        static TYPE instance;
        return instance;
    }

    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

  protected:
    Singleton() = default;
    ~Singleton() = default;
};

}  // namespace android
