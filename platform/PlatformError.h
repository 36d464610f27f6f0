#pragma once

#include <stdexcept>
#include <string>

namespace platform {

// A library refused its input (a corrupt container, an encoder failure). The core decides what the
// user sees; the message is for developers and never holds document content.
class CodecError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace platform
