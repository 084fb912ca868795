// Bytes and repetitions in data files: \xNN is a byte and <<TEXT*N>> a repetition; in quoted texts \n and \"
// are what they are in C.
#pragma once

#include <string>

inline std::string Expand(const std::string& text, bool quoted)
{
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text.compare(i, 2, "\\x") == 0) {
            out += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else if (quoted && text[i] == '\\') {
            out += text[++i] == 'n' ? '\n' : text[i];
        } else if (text.compare(i, 2, "<<") == 0) {
            const size_t star = text.find('*', i);
            const std::string repeated = Expand(text.substr(i + 2, star - i - 2), quoted);
            for (int times = std::stoi(text.substr(star + 1)); times > 0; times--)
                out += repeated;
            i = text.find(">>", i) + 1;
        } else {
            out += text[i];
        }
    }
    return out;
}
