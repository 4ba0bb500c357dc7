#pragma once

#include <cstdint>
#include <vector>

// Functions of libc that this program puts in front of the real ones, to count what the library
// asks of the kernel. They change nothing. All may be called from any thread but takeWrites().
namespace JCam::Soak::KernelCalls {

/// Record buffers that are mapped now.
int mappedBuffers();
/// The most that ever were.
int mostMappedBuffers();

/// Bytes that write(2) has taken so far, those of stdout and stderr aside.
uint64_t writtenBytes();
/// How many bytes each of those calls took, in their order, since this was called last. While
/// nobody writes.
std::vector<uint32_t> takeWrites();

}  // namespace JCam::Soak::KernelCalls
