// Which objects are the library's own.
#ifndef KESTRUNE_ENVELOPE_OWN_CLASS_H
#define KESTRUNE_ENVELOPE_OWN_CLASS_H

#include <typeinfo>

namespace kestrune {

// True for an object of exactly one of these classes. A platform's subclass may do in its operations whatever
// it likes, so what is done on the quiet for the library's own classes is not done for it.
template <class... Own, class T>
bool IsExactly(const T& object) {
  const std::type_info& type = typeid(object);
  return (... || (type == typeid(Own)));
}

}  // namespace kestrune

#endif
