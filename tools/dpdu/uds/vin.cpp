#include "uds/vin.h"

#include <algorithm>

namespace dpdu {
namespace {

constexpr std::size_t kVinLength = 17;

bool IsPadding(char character) { return character == '\0' || character == ' '; }

}  // namespace

std::string VinText(const Bytes& bytes) {
    std::string text(bytes.begin(), bytes.end());
    while (!text.empty() && IsPadding(text.back()))
        text.pop_back();
    text.erase(0, static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsPadding) -
                                           text.begin()));
    for (char& character : text) {
        if (character < ' ' || character > '~') character = '.';
    }
    return text;
}

bool IsWellFormedVin(const std::string& vin) {
    static constexpr char kAllowed[] = "0123456789ABCDEFGHJKLMNPRSTUVWXYZ";
    return vin.size() == kVinLength && vin.find_first_not_of(kAllowed) == std::string::npos;
}

}  // namespace dpdu
