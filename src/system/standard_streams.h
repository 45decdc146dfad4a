#ifndef QUILLMERE_SYSTEM_STANDARD_STREAMS_H_
#define QUILLMERE_SYSTEM_STANDARD_STREAMS_H_

#include <array>
#include <cstddef>
#include <ostream>
#include <span>
#include <streambuf>

/// Collects text and writes it to a descriptor. Where the descriptor takes nothing more for now, as
/// it may when the caller has made it non-blocking, it is waited for: every byte arrives, or the
/// stream fails.
class DescriptorBuffer : public std::streambuf {
 public:
  /// Collects as much as fits into `memory`, which belongs to the caller and is not empty.
  DescriptorBuffer(int descriptor, std::span<char> memory);

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int sync() override;

 private:
  int descriptor_;
};

/// Lets std::cout and std::cerr write to the descriptors 1 and 2 through buffers of their own for
/// as long as it lives, std::cout in large pieces. What std::cout holds back is written when it is
/// flushed, before std::cerr writes, and when the object goes. To be made before anything is
/// written.
class StandardStreams {
 public:
  /// Makes a pipe at standard output take large pieces at a time.
  StandardStreams();
  ~StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

 private:
  std::array<char, 256> error_memory_{};
  DescriptorBuffer output_;
  DescriptorBuffer error_;
  std::streambuf* output_before_;
  std::streambuf* error_before_;
};

#endif  // QUILLMERE_SYSTEM_STANDARD_STREAMS_H_
