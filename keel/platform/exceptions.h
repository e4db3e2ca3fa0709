#pragma once

#include <exception>
#include <string>

namespace keel {

// Base of the exceptions that cross a public call: invalid arguments, archive and file failures.
class CException : public std::exception {
public:
    explicit CException(std::string what) : m_what(std::move(what)) {}
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    std::string m_what;
};

// An index out of range, an empty container asked for an element, a bad position.
class InvalidArgumentException : public CException {
public:
    explicit InvalidArgumentException(const std::string& where)
        : CException("Invalid argument: " + where) {}
};

[[noreturn]] void ThrowInvalidArgument(const std::string& where);

} // namespace keel
