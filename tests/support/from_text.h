// Messages from their text form, which gives a field presence by naming it.
#ifndef CFM_TESTS_SUPPORT_FROM_TEXT_H
#define CFM_TESTS_SUPPORT_FROM_TEXT_H

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <string>

namespace cfm_test {

template <typename Message>
Message From(const std::string& text) {
  Message message;
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &message)) << text;
  return message;
}

}  // namespace cfm_test

#endif
