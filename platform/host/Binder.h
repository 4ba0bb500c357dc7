#pragma once

#include <memory>

#include <android/binder_interface_utils.h>

/// A handle to a service of this process. Each has exactly one strong reference, since nothing here
/// takes another.
struct AIBinder {
    std::shared_ptr<ndk::ICInterface> service;
};
