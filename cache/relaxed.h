// A field that one thread may read while another writes it, with no order promised between it and
// any other. As large as T and laid out like T: fields of the binary contract stay in their places.
#ifndef OX_CACHE_RELAXED_H_
#define OX_CACHE_RELAXED_H_

#include <atomic>

namespace ox::core::cache {

template <typename T>
class Relaxed {
 public:
  constexpr Relaxed(T value) : value_(value) {}
  operator T() const { return value_.load(std::memory_order_relaxed); }
  Relaxed& operator=(T value) {
    value_.store(value, std::memory_order_relaxed);
    return *this;
  }

 private:
  static_assert(sizeof(std::atomic<T>) == sizeof(T), "no lock beside the value");
  std::atomic<T> value_;
};

}  // namespace ox::core::cache

#endif
