// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {

// Holds numFds descriptors followed by numInts integers in `data`.
typedef struct native_handle {
    int version;  // sizeof(native_handle_t)
    int numFds;
    int numInts;
    int data[0];
} native_handle_t;

typedef const native_handle_t* buffer_handle_t;

// Returns null if a count is out of range or on allocation failure.
native_handle_t* native_handle_create(int numFds, int numInts);

// Frees the structure without closing the descriptors. Returns 0 or a negative errno.
int native_handle_delete(native_handle_t* handle);

// Closes the descriptors without freeing the structure. Returns 0 or a negative errno.
int native_handle_close(const native_handle_t* handle);

}  // extern "C"
