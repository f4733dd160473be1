// SPDX-License-Identifier: Apache-2.0
// Unsigned numbers in the records of the service's interface package.
//
// Lengths, offsets, sizes and timestamps in VppBuffer and VppMetaBuffer are unsigned. AIDL has only
// signed integers, so the platform's compiler declares each of these members with the signed type
// of the same width, and a length of 2^31 or a timestamp of 2^63 is negative there. The headers in
// this tree declare them unsigned. All accesses must use the functions below, which read and write
// the same bits with either declaration.
#pragma once

#include <type_traits>

namespace android {

// Returns the unsigned value of a member.
template <typename Member>
constexpr std::make_unsigned_t<Member> unsignedOf(Member member) {
    return static_cast<std::make_unsigned_t<Member>>(member);
}

// Stores an unsigned value in a member.
template <typename Member>
constexpr void setUnsigned(Member& member, std::make_unsigned_t<Member> value) {
    member = static_cast<Member>(value);
}

}  // namespace android
