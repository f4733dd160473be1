// SPDX-License-Identifier: Apache-2.0
#pragma once

// Starts the binder thread pool of this process. Has no effect if the pool is running.
extern "C" void ABinderProcess_startThreadPool();
