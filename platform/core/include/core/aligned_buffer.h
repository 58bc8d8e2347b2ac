// Memory to read files into.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace core {

// Bytes without a value yet. The kernel copies to a boundary of the processor's cache lines
// three times as fast as to sixteen bytes behind one, which is where plain memory may begin.
// Throws std::bad_alloc. For one thread at a time.
class AlignedBuffer {
 public:
  AlignedBuffer() = default;
  explicit AlignedBuffer(std::size_t size)
      : data_(static_cast<char*>(::operator new(size, kLine))), size_(size) {}
  AlignedBuffer(AlignedBuffer&& other) noexcept
      : data_(std::move(other.data_)), size_(std::exchange(other.size_, 0)) {}
  AlignedBuffer& operator=(AlignedBuffer&& other) noexcept {
    data_ = std::move(other.data_);
    size_ = std::exchange(other.size_, 0);
    return *this;
  }
  ~AlignedBuffer() = default;

  // Null while default-made, reset or moved from.
  char* data() const { return data_.get(); }
  std::size_t size() const { return size_; }

  void reset() {
    data_.reset();
    size_ = 0;
  }

 private:
  static constexpr std::align_val_t kLine{64};

  struct Release {
    void operator()(char* data) const { ::operator delete(data, kLine); }
  };

  std::unique_ptr<char, Release> data_;
  std::size_t size_ = 0;
};

}  // namespace core
