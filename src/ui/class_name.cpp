#include "ui/class_name.hpp"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace tavrel {

std::string className(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                        &std::free);
  std::string name = status == 0 && demangled ? demangled.get() : type.name();
  // Template arguments may hold "::" of their own; only the outer name's qualification goes.
  const std::size_t end = name.find('<');
  const std::size_t colon = name.rfind("::", end);
  return colon == std::string::npos ? name : name.substr(colon + 2);
}

std::string describeObject(const std::type_info& type, const void* address) {
  char pointer[32];
  std::snprintf(pointer, sizeof pointer, "%p", address);
  // Appended piece by piece: GCC 12 warns falsely (-Wrestrict) on the chained operator+.
  std::string text = "<";
  text += className(type);
  text += ": ";
  text += pointer;
  text += ">";
  return text;
}

}  // namespace tavrel
