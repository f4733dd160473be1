// SPDX-License-Identifier: Apache-2.0
#pragma once

extern "C" {

// numFds descriptors, then numInts integers, in `data`.
typedef struct native_handle {
    int version;  // sizeof(native_handle_t)
    int numFds;
    int numInts;
    int data[0];
} native_handle_t;

typedef const native_handle_t* buffer_handle_t;

// Null when the counts are out of range or memory is short.
native_handle_t* native_handle_create(int numFds, int numInts);

// Frees the structure and closes nothing. 0, or a negative errno.
int native_handle_delete(native_handle_t* handle);

// Closes the descriptors and frees nothing. 0, or a negative errno.
int native_handle_close(const native_handle_t* handle);

}  // extern "C"
