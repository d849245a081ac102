// The keyed hash, computed by OpenSSL because it uses the processor's SHA instructions.
// Called for every verified file; any thread.
#include "archive/KeyedDigest.h"

#include "platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <string>
#include <string_view>

namespace zul {

namespace {
constexpr std::size_t kDigestSize = 32;
}

std::string hexText(const Data& data) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * data.size());
    for (const std::uint8_t byte : data) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string keyedDigest(const std::string& key, const Data& data) {
    Data digest(kDigestSize + 1, 0); // every digest text includes a final zero byte
    unsigned length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), data.data(), data.size(), digest.data(), &length);
    return hexText(digest);
}

} // namespace zul
