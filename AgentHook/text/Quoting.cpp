#include "text/Quoting.hpp"

namespace AgentHook::text {

std::string describeList(const std::vector<std::string>& texts) {
    std::string out = "[";
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i > 0) out.append(", ");
        out.push_back('"');
        for (const char c : texts[i]) {
            const auto byte = static_cast<unsigned char>(c);
            switch (c) {
                case '"': out.append("\\\""); break;
                case '\\': out.append("\\\\"); break;
                case '\n': out.append("\\n"); break;
                case '\r': out.append("\\r"); break;
                case '\t': out.append("\\t"); break;
                case '\0': out.append("\\0"); break;
                default:
                    if (byte < 0x20 || byte == 0x7f) {
                        out.append("\\u{");
                        if (byte >= 0x10) out.push_back("0123456789abcdef"[byte >> 4]);
                        out.push_back("0123456789abcdef"[byte & 0x0f]);
                        out.push_back('}');
                    } else {
                        out.push_back(c);
                    }
            }
        }
        out.push_back('"');
    }
    out.push_back(']');
    return out;
}

}  // namespace AgentHook::text
