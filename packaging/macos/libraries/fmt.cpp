// The part of fmt that isn't templates, compiled once. The header-only mode would compile it in every source,
// at three times the compile time.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<wchar_t>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
template FMT_API auto decimal_point_impl(locale_ref) -> wchar_t;

}  // namespace detail
FMT_END_NAMESPACE
