// Buffers that sit flush against an inaccessible page, so that a kernel
// reading or writing one element past the end (or before the start) faults
// on every build, sanitizers or not.
#ifndef VORLITH_TESTS_SUPPORT_GUARDED_H_
#define VORLITH_TESTS_SUPPORT_GUARDED_H_

#include <cstddef>

namespace vorlith::test {

class GuardedBytes {
 public:
  enum class Flush { kEnd, kStart };
  GuardedBytes(std::size_t bytes, Flush flush);
  ~GuardedBytes();
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  unsigned char* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  void* map_ = nullptr;
  std::size_t map_size_ = 0;
  unsigned char* data_ = nullptr;
  std::size_t size_ = 0;
};

// Typed view: `count` elements of T against the guard page.
template <class T>
class Guarded {
 public:
  Guarded(std::size_t count, GuardedBytes::Flush flush = GuardedBytes::Flush::kEnd)
      : bytes_(count * sizeof(T), flush), count_(count) {}
  T* data() const { return reinterpret_cast<T*>(bytes_.data()); }
  T& operator[](std::size_t i) const { return data()[i]; }
  std::size_t size() const { return count_; }

 private:
  GuardedBytes bytes_;
  std::size_t count_;
};

}  // namespace vorlith::test

#endif  // VORLITH_TESTS_SUPPORT_GUARDED_H_
