#include "tests/support/guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace vorlith::test {

GuardedBytes::GuardedBytes(std::size_t bytes, Flush flush) : size_(bytes) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t body = (bytes + page - 1) / page * page;
  map_size_ = body + 2 * page;
  map_ = mmap(nullptr, map_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map_ == MAP_FAILED) std::abort();
  unsigned char* first = static_cast<unsigned char*>(map_) + page;
  if (body != 0 && mprotect(first, body, PROT_READ | PROT_WRITE) != 0) std::abort();
  // Flush against the end keeps element alignment: callers ask for whole
  // elements and the page size is a multiple of every element size.
  data_ = flush == Flush::kStart ? first : first + (body - bytes);
}

GuardedBytes::~GuardedBytes() { munmap(map_, map_size_); }

}  // namespace vorlith::test
