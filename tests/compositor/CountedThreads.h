// Counts the threads that the code under test makes and joins, and refuses to make them. For
// programs that are linked with --wrap=pthread_create,--wrap=pthread_join; one file includes it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cerrno>

inline std::atomic<int> g_unjoinedThreads = 0;
inline std::atomic<bool> g_refuseThreads = false;

extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
  if (g_refuseThreads) return EAGAIN;
  ++g_unjoinedThreads;
  return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  --g_unjoinedThreads;
  return __real_pthread_join(thread, result);
}

}  // extern "C"
