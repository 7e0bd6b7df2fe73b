// A stand-in, see README.md in this folder.
#pragma once
#include <locale.h>
typedef unsigned int __uint32_t;
enum { _CTYPE_A = 0x100, _CTYPE_C = 0x200, _CTYPE_D = 0x400, _CTYPE_L = 0x1000, _CTYPE_P = 0x2000 };
enum { _CTYPE_S = 0x4000, _CTYPE_U = 0x8000, _CTYPE_X = 0x10000, _CTYPE_B = 0x20000, _CTYPE_R = 0x40000 };
extern "C" {
#define MB_CUR_MAX_L(locale) MB_CUR_MAX
int snprintf_l(char*, size_t, locale_t, const char*, ...);
int asprintf_l(char**, locale_t, const char*, ...);
int sscanf_l(const char*, locale_t, const char*, ...);
size_t mbrtowc_l(wchar_t*, const char*, size_t, mbstate_t*, locale_t);
size_t mbrlen_l(const char*, size_t, mbstate_t*, locale_t);
size_t mbsrtowcs_l(wchar_t*, const char**, size_t, mbstate_t*, locale_t);
size_t mbsnrtowcs_l(wchar_t*, const char**, size_t, size_t, mbstate_t*, locale_t);
size_t wcsnrtombs_l(char*, const wchar_t**, size_t, size_t, mbstate_t*, locale_t);
size_t wcrtomb_l(char*, wchar_t, mbstate_t*, locale_t);
int mbtowc_l(wchar_t*, const char*, size_t, locale_t);
wint_t btowc_l(int, locale_t);
int wctob_l(wint_t, locale_t);
lconv* localeconv_l(locale_t);
double strtod_l(const char*, char**, locale_t);
float strtof_l(const char*, char**, locale_t);
long double strtold_l(const char*, char**, locale_t);
long long strtoll_l(const char*, char**, int, locale_t);
unsigned long long strtoull_l(const char*, char**, int, locale_t);
}
