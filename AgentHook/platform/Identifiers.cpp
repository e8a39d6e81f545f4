#include "platform/Identifiers.hpp"

#if defined(__APPLE__)
#include <CommonCrypto/CommonDigest.h>
#else
#include <md5.h>
#endif
#include <uuid/uuid.h>

#include "text/Quoting.hpp"

namespace AgentHook::platform {

std::string randomUuid() {
    uuid_t uuid;
    uuid_generate_random(uuid);
    char text[37];
    uuid_unparse_upper(uuid, text);
    return std::string(text, 36);
}

std::string md5Hex(std::string_view bytes) {
    unsigned char digest[16];
#if defined(__APPLE__)
    // CC_MD5 is marked deprecated for security use; this key is no security measure.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    CC_MD5(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest);
#pragma clang diagnostic pop
#else
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    MD5Final(digest, &context);
#endif
    std::string hex;
    hex.reserve(32);
    for (const unsigned char byte : digest) text::appendHexByte(hex, byte);
    return hex;
}

}  // namespace AgentHook::platform
