// A handle of libuv that may be given up at any time: libuv frees it when the loop is done with it.
#pragma once

#include <uv.h>

#include <memory>

namespace plc_gateway {

struct UvClose {
  template <typename Handle>
  void operator()(Handle* handle) const {
    uv_close(reinterpret_cast<uv_handle_t*>(handle),
             [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); });
  }
};

// Initialised by its owner at once: what was not must not be closed.
template <typename Handle>
using UvHandle = std::unique_ptr<Handle, UvClose>;

inline UvHandle<uv_timer_t> make_timer(uv_loop_t* loop, void* owner) {
  UvHandle<uv_timer_t> timer(new uv_timer_t);
  uv_timer_init(loop, timer.get());
  timer->data = owner;
  return timer;
}

}  // namespace plc_gateway
