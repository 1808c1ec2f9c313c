#include "codec/text_ring.h"

#include "support/ring.h"

namespace rk {

static constinit Ring<8, kAddressTextSize> address_texts;

char *next_address_text() {
    return address_texts.next();
}

} // namespace rk
