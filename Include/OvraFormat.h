// OvraFormat.h - printf-style formatting of 16-bit text into a caller's buffer.
//
// The format is 16-bit text. A conversion is "%" [flags] [width] ["." precision]
// [size] type, read by a small state machine, with these rules:
//  - flags: "-" left-justify, "+" sign always, blank sign-or-blank, "0" pad
//    with zeros (for every conversion, text included, unless "-" is given;
//    integer conversions drop it when a precision applies); "#" is accepted
//    and does nothing.
//  - width: digits, or "*" taking an int argument (negative means "-" and its
//    magnitude). Digits after a "*" continue it ("%*5d" with 2 gives width 25).
//  - precision: only "*" works (an int argument; negative means none). A
//    precision written in digits is kept for compatibility but never applies:
//    "%.2s" prints the whole string and "%.5d" no leading zeros. Any star
//    precision is honoured, however large; no work area limits it.
//  - size: "h" makes d, i, u, o, x, X use the low 16 bits of the argument (d
//    and i sign-extended) and n store 16 bits; "F", "I", "L", "N", "l", "w"
//    are accepted and ignored: integer arguments are always read as int.
//  - type: c (an int, as one 16-bit character), s (a 16-bit string; null
//    prints "(null)"; a star precision cuts it), d/i (signed decimal), u, o,
//    x ("a".."f"), X ("A".."F") (unsigned), p (a pointer, upper-case hex, at
//    least 8 digits and more only when the value needs them; precision is
//    ignored and "0" pads with blanks), n (stores the count so far in an int,
//    or a short with "h"; prints nothing, not even padding). B, C, E, G, S,
//    Z, e, f, g take no argument and print only the width's padding.
//  - "%%" prints "%". A "%" followed by any other character that fits nowhere
//    (for example "y", or "*" after width digits) drops what was read of the
//    conversion and prints that character. A "%" at the very end prints nothing.
// Widths and precisions saturate at 2147483647, as does the returned count;
// padding beyond the room is counted without being written.
#ifndef OVRA_OVRAFORMAT_H
#define OVRA_OVRAFORMAT_H

#include <stdarg.h>
#include <stddef.h>

#include "OvraPlatform.h"

// Formats into buffer, which holds size 16-bit characters including the
// terminator. Never writes past buffer[size - 1]; terminates whenever size is
// at least 1; writes nothing at all when size is 0. Returns the length of the
// full output (not counting the terminator) whether or not it fit: a result
// of size or more means the text was truncated.
OVRA_EXTERN_C OVRA_API int snuprintf(unsigned short* buffer, size_t size,
                                     const unsigned short* format, ...);
// snuprintf with an argument list; the list is consumed (va_end is the
// caller's).
OVRA_EXTERN_C OVRA_API int vsnuprintf(unsigned short* buffer, size_t size,
                                      const unsigned short* format, va_list args);

#endif
