#pragma once

#include <cstdlib>
#include <string>

namespace tests {

/// Puts a variable into the environment for the life of this object, before threads run.
class scoped_variable_t {
  public:
    scoped_variable_t(const char* name, const std::string& value) : name_(name) {
        const char* const before = std::getenv(name);
        had_ = before != nullptr;
        before_ = had_ ? before : "";
        ::setenv(name, value.c_str(), 1);
    }
    ~scoped_variable_t() { had_ ? ::setenv(name_, before_.c_str(), 1) : ::unsetenv(name_); }
    scoped_variable_t(const scoped_variable_t&) = delete;
    scoped_variable_t& operator=(const scoped_variable_t&) = delete;

  private:
    const char* const name_;
    bool had_ = false;
    std::string before_;
};

}  // namespace tests
