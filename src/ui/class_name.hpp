#pragma once

// How the toolkit names objects in the tree dump and in the platform's warnings.

#include <string>
#include <typeinfo>

namespace tavrel {

// The C++ class name without its namespace ("LoginViewController"): a subclass shows its own.
std::string className(const std::type_info& type);

// "<LoginViewController: 0x5581f2a0c8b0>", as the platform describes an object.
std::string describeObject(const std::type_info& type, const void* address);

template <class T>
std::string describeObject(const T& object) {
  return describeObject(typeid(object), static_cast<const void*>(&object));
}

}  // namespace tavrel
