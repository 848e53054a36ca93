// The second interpretation of a text that has been formatted already.
#ifndef CORVANE_MDCMAIN_LOG_FORMAT_HPP
#define CORVANE_MDCMAIN_LOG_FORMAT_HPP

namespace corvane {

// Reads `text` as a format without arguments, in place: "%%" becomes "%". A directive that would
// need an argument is left as it stands, since there is none to take.
inline void interpret_again(char* text) noexcept
{
    char* to = text;
    for (const char* from = text; *from != 0; ++from) {
        if (from[0] == '%' && from[1] == '%') ++from;
        *to++ = *from;
    }
    *to = 0;
}

}  // namespace corvane
#endif
