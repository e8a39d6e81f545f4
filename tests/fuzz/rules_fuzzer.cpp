// The auto-accept rules. The input is NUL-separated pieces: the first is a
// glob, the last the target, and all but the last are rules. The glob matcher
// (a bit-parallel automaton that skips ahead) is compared with a plain
// dynamic-programming matcher of the same language on valid UTF-8 that is
// small enough for it: the pattern read as user-perceived characters, the
// target as code points ("?" takes one, as a regular expression's "." does).
#include <utf8proc.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzSupport.hpp"
#include "runtime/AutoAcceptRules.hpp"
#include "text/Glob.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;
using AgentHook::text::globMatch;

namespace {

// Valid UTF-8 only, from here on.
struct CodePoint {
    utf8proc_int32_t value;
    std::size_t length;
};

CodePoint codePointAt(std::string_view text, std::size_t i) {
    utf8proc_int32_t value = -1;
    const utf8proc_ssize_t length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                         static_cast<utf8proc_ssize_t>(text.size() - i), &value);
    fuzz::require(length > 0, "the reference reads valid UTF-8");
    return {value, static_cast<std::size_t>(length)};
}

bool isLineTerminator(utf8proc_int32_t c) {
    return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// Length of the user-perceived character starting at text[i], segmented from
// there, as utf8proc marks grapheme clusters.
std::size_t clusterLength(std::string_view text, std::size_t i) {
    utf8proc_uint8_t* marked = nullptr;
    const utf8proc_ssize_t size =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                     static_cast<utf8proc_ssize_t>(text.size() - i), &marked, UTF8PROC_CHARBOUND);
    fuzz::require(size > 0 && marked[0] == 0xFF, "utf8proc marks the clusters");
    utf8proc_ssize_t next = 1;
    while (next < size && marked[next] != 0xFF) ++next;
    std::free(marked);
    return static_cast<std::size_t>(next - 1);
}

enum class Kind { literal, anyCharacter, star, doubleStar };
struct Token {
    Kind kind;
    std::string_view literal;
};

// "**" (taking a "/" right after it), "*", "?" and literal characters.
std::vector<Token> tokens(std::string_view pattern) {
    std::vector<Token> out;
    std::size_t i = 0;
    const auto next = [&] { return i < pattern.size() ? pattern.substr(i, clusterLength(pattern, i)) : std::string_view(); };
    while (i < pattern.size()) {
        const std::string_view character = next();
        i += character.size();
        if (character == "*" && next() == "*") {
            i += 1;
            if (next() == "/") i += 1;
            out.push_back({Kind::doubleStar, {}});
        } else if (character == "*") {
            out.push_back({Kind::star, {}});
        } else if (character == "?") {
            out.push_back({Kind::anyCharacter, {}});
        } else {
            out.push_back({Kind::literal, character});
        }
    }
    return out;
}

// The anchored regular expression the glob stands for: "$" matches at the end
// and before one final line terminator, CR LF being one.
bool referenceMatch(std::string_view pattern, std::string_view text) {
    if (pattern.size() > 4095) return false;
    const std::vector<Token> glob = tokens(pattern);
    const std::size_t n = text.size();
    std::size_t beforeTerminator = n;
    if (text.ends_with("\r\n")) {
        beforeTerminator = n - 2;
    } else {
        for (std::size_t i = 0; i < n;) {
            const CodePoint c = codePointAt(text, i);
            if (i + c.length == n && isLineTerminator(c.value)) beforeTerminator = i;
            i += c.length;
        }
    }
    // reached[p * (T + 1) + j]: the first j tokens match text[0, p).
    const std::size_t width = glob.size() + 1;
    std::vector<char> reached((n + 1) * width, 0);
    reached[0] = 1;
    for (std::size_t p = 0; p <= n; ++p) {
        for (std::size_t j = 0; j < glob.size(); ++j) {
            if (!reached[p * width + j]) continue;
            const Token& token = glob[j];
            if (token.kind == Kind::star || token.kind == Kind::doubleStar) {
                reached[p * width + j + 1] = 1;
                if (p == n) continue;
                const CodePoint c = codePointAt(text, p);
                if (token.kind == Kind::star ? c.value != '/' : !isLineTerminator(c.value)) {
                    reached[(p + c.length) * width + j] = 1;
                }
            } else if (token.kind == Kind::literal) {
                if (text.substr(p).starts_with(token.literal)) reached[(p + token.literal.size()) * width + j + 1] = 1;
            } else if (p < n) {
                const CodePoint c = codePointAt(text, p);
                if (!isLineTerminator(c.value)) reached[(p + c.length) * width + j + 1] = 1;
            }
        }
    }
    return reached[n * width + glob.size()] || reached[beforeTerminator * width + glob.size()];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::string_view> pieces = fuzz::splitAtNul(fuzz::bytesOf(data, size));
    const std::string_view pattern = pieces.front();
    const std::string_view target = pieces.back();

    const bool matched = globMatch(pattern, target);
    if (text::isValidUtf8(pattern) && text::isValidUtf8(target) && (pattern.size() + 1) * (target.size() + 1) <= 1 << 16) {
        fuzz::require(matched == referenceMatch(pattern, target), "the glob matches as the regular expression does");
    }

    const std::vector<std::string> rules(pieces.begin(), pieces.end() - 1);
    matchesAutoAcceptRules(rules, target, "Bash");
    fuzz::require(matchesAutoAcceptRules({"*"}, target, "Bash"), "\"*\" covers every target");
    if (!target.empty() && !target.starts_with("//") && !target.starts_with("domain:")) {
        fuzz::require(matchesAutoAcceptRules({std::string(target)}, target, "Bash"), "a target is its own prefix");
    }
    return 0;
}
