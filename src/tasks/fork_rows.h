// Divides rows, or any other units, among the tasks: fork_rows(n, body) calls body(first, count) on each task that has
// a share of 0 .. n - 1, and returns when all are done.
//
//     fork_rows(height, [&](int first, int count) {
//         for (int y = first; y < first + count; ++y) ...
//     });
//
// The body is a small function object, mostly a lambda that captures references or plain values; it is shared by the
// tasks and lives in the caller. The jump of a fatal abort may leave it on any task, so nothing with a destructor that
// matters may live in it across a call that may abort, nor be captured by value. Each task writes its own rows alone.
// Scratch comes from get_forked_buffer, reserved before the fork. Host's thread only; forks do not nest.
#pragma once

#include "tasks/tasks.h"

#include <memory>
#include <type_traits>

namespace velloran {

template <class Body>
StripeBody stripe_body(const Body& body) {
    static_assert(std::is_trivially_destructible_v<Body>, "a fatal abort passes the body without a destructor");
    return {[](const void* b, int first, int count) { (*static_cast<const Body*>(b))(first, count); },
            std::addressof(body)};
}

template <class Body>
void fork_rows(int n, const Body& body) {
    fork_stripes(n, stripe_body(body));
}

// The same for the height rows of an image; those of a small one, where a fork would cost more than it saves, go to
// the body in this thread.
template <class Body>
void fork_rows_if_big_image(int width, int height, const Body& body) {
    if (big_image_p(width, height))
        fork_stripes(height, stripe_body(body));
    else
        run_stripe(height, stripe_body(body));
}

template <class Body>
void fork_rows_if_wide_image(int width, int height, const Body& body) {
    if (wide_image_p(width, height))
        fork_stripes(height, stripe_body(body));
    else
        run_stripe(height, stripe_body(body));
}

}  // namespace velloran
