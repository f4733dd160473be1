// SPDX-License-Identifier: Apache-2.0
#pragma once

// Starts this process's pool of binder threads; no effect once it runs.
extern "C" void ABinderProcess_startThreadPool();
