#pragma once

#include <stdexcept>

namespace kvx::ocr {

/// The document cannot be read; the text ends the sentence "The document cannot be read: …".
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The data of a language are not installed; the text names it.
class NoLanguage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace kvx::ocr
