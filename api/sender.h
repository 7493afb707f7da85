// Whether who signed is who says that he sent.
#ifndef KESTRUNE_API_SENDER_H
#define KESTRUNE_API_SENDER_H

#include <string_view>

namespace kestrune {

// kestrune_is_sender; the contract stands there.
bool IsSender(std::string_view signer, std::string_view from);

}  // namespace kestrune

#endif
