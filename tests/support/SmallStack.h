#pragma once

#include <pthread.h>

#include <functional>
#include <stdexcept>

namespace kelvane::tests {

/// Runs a function on a new thread with a stack of 256 KiB, and waits for it.
inline void onSmallStack(const std::function<void()>& body) {
  pthread_attr_t attributes;
  pthread_t thread;
  if (pthread_attr_init(&attributes) != 0 || pthread_attr_setstacksize(&attributes, std::size_t{256} << 10) != 0 ||
      pthread_create(
          &thread, &attributes,
          [](void* argument) -> void* {
            (*static_cast<const std::function<void()>*>(argument))();
            return nullptr;
          },
          const_cast<void*>(static_cast<const void*>(&body))) != 0) {
    throw std::runtime_error("The thread with the small stack could not be started.");
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace kelvane::tests
