#pragma once

// Starts this process's pool of binder threads; no effect once it runs.
void ABinderProcess_startThreadPool();
