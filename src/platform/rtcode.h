#pragma once
// Places a function in the section RT_CODE, apart from the rest of the code,
// so that all the audio thread runs lies together and a host can keep it
// resident (a Windows driver package pins the section by name). GCC and
// Clang take the same attribute for ELF and PE objects; the name fits PE's
// eight characters. Only functions go here: data in the same section would
// clash with the code's flags. The build checks where these functions land
// (cmake/CheckSection.cmake).
#define ZOR_RT_CODE __attribute__((section("RT_CODE")))
