#pragma once

// Boost.Asio 1.74, as far as it is used here, in the way in which g++ 12 takes it.

#include <utility>  // which Asio needs and does not ask for

// With sanitizers the compiler takes Asio's pair of allocation functions for coroutine frames for two that do
// not match, and warns that ThreadSanitizer sees no fences: what Asio shares between threads is locked
// besides.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#ifdef __SANITIZE_THREAD__
#pragma GCC diagnostic ignored "-Wtsan"
#endif

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
