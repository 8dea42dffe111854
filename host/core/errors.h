#pragma once

#include <exception>
#include <new>
#include <stdexcept>

namespace host {

/// Root of what this system throws. Its text is for a person, one line: on which thing what failed,
/// and why.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Ends work that somebody asked to end, at a place where all is as before.
class Cancelled : public Error {
 public:
  Cancelled() : Error("interrupted") {}
};

/// The text of what was thrown, for a message; a lack of memory in words.
inline const char* TextOf(const std::exception& e) {
  return dynamic_cast<const std::bad_alloc*>(&e) ? "there isn't enough memory" : e.what();
}

}  // namespace host
