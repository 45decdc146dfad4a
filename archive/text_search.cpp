#include "archive/text_search.h"

#include <emmintrin.h>

#include <bit>
#include <cstdint>

namespace {

/// A bit for each of sixteen places, from `begin` on, where `first` stands, and `last` so many
/// bytes behind it.
std::uint32_t PlacesOf(__m128i first, __m128i last, const char* begin, std::size_t to_last) {
  const __m128i begins = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin));
  const __m128i ends = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin + to_last));
  return static_cast<std::uint32_t>(
      _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(begins, first), _mm_cmpeq_epi8(ends, last))));
}

/// The first of `places`, bits for places from `at` on, at which `wanted` stands, or npos.
std::size_t FirstOf(std::uint32_t places, std::string_view text, std::size_t at,
                    std::string_view wanted) {
  for (; places != 0; places &= places - 1) {
    const std::size_t place = at + static_cast<std::size_t>(std::countr_zero(places));
    if (text.compare(place, wanted.size(), wanted) == 0) {
      return place;
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::size_t FindText(std::string_view text, std::string_view wanted, std::size_t from) {
  const std::size_t to_last = wanted.size() - 1;
  const __m128i first = _mm_set1_epi8(wanted.front());
  const __m128i last = _mm_set1_epi8(wanted.back());
  std::size_t at = from;
  for (; at + to_last + sizeof(__m128i) <= text.size(); at += sizeof(__m128i)) {
    const std::uint32_t places = PlacesOf(first, last, text.data() + at, to_last);
    const std::size_t place = FirstOf(places, text, at, wanted);
    if (place != std::string_view::npos) {
      return place;
    }
  }
  return text.find(wanted, at);
}
