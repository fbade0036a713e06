// A process that can start no thread.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace plc_gateway_test {

// As where threads have no room: none has a stack of this size.
class WithoutRoomForThreads {
 public:
  WithoutRoomForThreads() {
    constexpr size_t kBeyondMemory = size_t{1} << 47U;
    pthread_getattr_default_np(&before_);
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_setstacksize(&attributes, kBeyondMemory);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
  }
  WithoutRoomForThreads(const WithoutRoomForThreads&) = delete;
  WithoutRoomForThreads& operator=(const WithoutRoomForThreads&) = delete;
  ~WithoutRoomForThreads() {
    pthread_setattr_default_np(&before_);
    pthread_attr_destroy(&before_);
  }

 private:
  pthread_attr_t before_{};
};

}  // namespace plc_gateway_test
