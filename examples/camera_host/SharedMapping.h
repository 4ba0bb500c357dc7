#pragma once

#include <cstddef>

namespace CameraHost {

/// Zeroed memory that this process shares with the children it makes afterwards. Throws without
/// memory.
class SharedMapping {
  public:
    explicit SharedMapping(size_t bytes);
    ~SharedMapping();
    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;

    /// Aligned to a page.
    [[nodiscard]] char* get() const { return static_cast<char*>(mMemory); }

  private:
    const size_t mBytes;
    void* const mMemory;
};

}  // namespace CameraHost
