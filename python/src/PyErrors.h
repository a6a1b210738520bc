// AMerovaneError: the one exception the Python module raises for the library's messages.
#pragma once

#include <stdexcept>
#include <string>

// Becomes merovane.MerovaneError in Python, with the library's text as its message.
class AMerovaneError : public std::runtime_error {
public:
    explicit AMerovaneError(const std::string& text) : std::runtime_error(text) {}
};
