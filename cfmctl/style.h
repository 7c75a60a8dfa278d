// Colours of the output: a style with colours for a terminal, one without for everything else.
#ifndef CFMCTL_STYLE_H
#define CFMCTL_STYLE_H

#include <string>
#include <string_view>

namespace cfmctl {

class Style {
 public:
  explicit Style(bool coloured) : coloured_(coloured) {}

  std::string Bold(std::string_view text) const { return Paint("1", text); }
  std::string Dim(std::string_view text) const { return Paint("2", text); }
  std::string Red(std::string_view text) const { return Paint("31", text); }
  std::string Green(std::string_view text) const { return Paint("32", text); }
  std::string Yellow(std::string_view text) const { return Paint("33", text); }

 private:
  // The number is a Select Graphic Rendition parameter of ECMA-48.
  std::string Paint(std::string_view parameter, std::string_view text) const {
    if (!coloured_) return std::string(text);
    return "\x1b[" + std::string(parameter) + "m" + std::string(text) + "\x1b[0m";
  }

  bool coloured_;
};

}  // namespace cfmctl

#endif
