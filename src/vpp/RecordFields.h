// SPDX-License-Identifier: Apache-2.0
// Unsigned numbers in the records of the service's interface package.
//
// Lengths, offsets, sizes and timestamps in VppBuffer and VppMetaBuffer are unsigned. The language
// that the package is written in knows signed integers only, so a generated record declares the
// signed type of the same width, and a length of 2^31 or a timestamp of 2^63 is negative there.
// Every access to such a member goes through here, so that the same code reads and writes the same
// bits against either declaration.
#pragma once

#include <type_traits>

namespace android {

// The number that a member stands for.
template <typename Member>
constexpr std::make_unsigned_t<Member> unsignedOf(Member member) {
    return static_cast<std::make_unsigned_t<Member>>(member);
}

// Has a member stand for `value`.
template <typename Member>
constexpr void setUnsigned(Member& member, std::make_unsigned_t<Member> value) {
    member = static_cast<Member>(value);
}

}  // namespace android
