// The names that applications compile against, letter for letter including their misspellings, and their
// types, are checked by the compiler: a rename does not build.
#pragma once

namespace sorrel {

/// A public field of exactly this type.
template <class Type, class Owner>
constexpr bool isField(Type Owner::*) {
  return true;
}
/// A class-level operation of exactly this type.
template <class Signature>
constexpr bool isOperation(Signature*) {
  return true;
}
/// An operation of an object of exactly this type.
template <class Signature, class Owner>
constexpr bool isMethod(Signature Owner::*) {
  return true;
}

}  // namespace sorrel
