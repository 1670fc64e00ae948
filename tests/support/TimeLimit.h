#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace vorna::testing {

// Runs `work` on a thread of its own and waits at most `limit` for it. When it
// takes longer, `release` is called again and again until the work ends (a
// call blocked on a pipe ends once the pipe's other end is opened), and the
// result is false: the test fails instead of hanging the whole run. Work that
// even that does not end within ten seconds ends the test program, failing.
bool finishesWithin(std::chrono::milliseconds limit, const std::function<void()>& work,
                    const std::function<void()>& release);

// Polls `condition` until it holds or `within` passes; says whether it held.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds within = std::chrono::seconds(10));

// Makes a named pipe at `path`; fails the test when it cannot.
void makePipe(const std::string& path);

// Opens both ends of the pipe at `path` at once and closes them again: an open
// that waits for the other end returns, and a read that waits sees the end.
void releasePipe(const std::string& path);

// releasePipe for every pipe directly in `folder`, wherever a pipe was moved.
void releasePipesIn(const std::string& folder);

}  // namespace vorna::testing
