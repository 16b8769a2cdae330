#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "PLXPage.h"
#include "PLXRequest.h"

// The pieces that pages of the administration are made of. Texts are encoded here.

// In a page's head: asked for again by the browser, without a script.
inline constexpr std::string_view kRefresh = "<meta http-equiv=\"refresh\" content=\"5\">\n";

inline std::string Cell(std::string_view text_i) { return "<td>" + EncodeHTML(text_i) + "</td>"; }
inline std::string NumberCell(std::string const& text_i) {
  return "<td class=\"number\">" + EncodeHTML(text_i) + "</td>";
}
inline std::string Pair(std::string_view name_i, std::string_view value_i) {
  return "<dt>" + EncodeHTML(name_i) + "</dt><dd>" + EncodeHTML(value_i) + "</dd>\n";
}
inline std::string Link(std::string_view address_i, std::string_view text_i) {
  return "<a href=\"" + EncodeHTML(address_i) + "\">" + EncodeHTML(text_i) + "</a>";
}

// A table up to its first row, in a box of its own that can be scrolled sideways, also with the keyboard.
// Screen readers are told the caption; an eye has the heading above.
template <typename Names>
std::string TableHead(std::string_view caption_i, Names const& names_i) {
  std::string const caption = EncodeHTML(caption_i);
  std::string head = "<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"" + caption +
                     "\"><table>\n<caption>" + caption + "</caption>\n<thead><tr>";
  for (std::string_view const name : names_i) head += "<th scope=\"col\">" + EncodeHTML(name) + "</th>";
  return head + "</tr></thead>\n<tbody>\n";
}
inline std::string TableHead(std::string_view caption_i, std::initializer_list<std::string_view> names_i) {
  return TableHead<std::initializer_list<std::string_view>>(caption_i, names_i);
}
inline constexpr std::string_view kTableEnd = "</tbody></table></div>\n";

inline std::string ArgumentOf(PLXRequest const& request_i, std::string_view name_i) {
  PLXNameValue const* const found = FindNameValue(request_i.pathArguments, name_i);
  return found ? found->value : std::string();
}
