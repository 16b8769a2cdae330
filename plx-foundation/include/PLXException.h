#pragma once

#include <exception>

// What every exception of the foundation derives from. Carries a text that lives as long as the program.
class PLXException : public std::exception {
 public:
  explicit PLXException(char const* what_i = "PLXException") noexcept : myWhat(what_i) {}
  char const* what() const noexcept override { return myWhat; }

 private:
  char const* myWhat;
};
