// The wire contract: every message and field of the schema against a listing that is checked in beside this test.
//
// A difference here breaks clients and servers of other versions. Only what is new may be added, at the end of its
// message, and then to the listing as well: the failure message holds the whole listing as it would be.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "client_server.pb.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;

std::string LabelOf(const FieldDescriptor& field) {
  if (field.is_required()) {
    return "required";
  }
  return field.is_repeated() ? (field.is_packed() ? "repeated packed" : "repeated") : "optional";
}

std::string TypeOf(const FieldDescriptor& field) {
  if (field.message_type() != nullptr) {
    return field.message_type()->full_name();
  }
  return field.enum_type() != nullptr ? field.enum_type()->full_name() : field.type_name();
}

void List(const Descriptor& message, std::ostream& out) {
  out << "message " << message.full_name() << '\n';
  for (int i = 0; i < message.field_count(); ++i) {
    const FieldDescriptor& field = *message.field(i);
    out << "  " << field.number() << ' ' << LabelOf(field) << ' ' << TypeOf(field) << ' ' << field.name();
    if (field.has_default_value()) {
      out << " with a default";
    }
    if (field.real_containing_oneof() != nullptr) {
      out << " oneof " << field.real_containing_oneof()->name();
    }
    out << '\n';
  }
  for (int i = 0; i < message.nested_type_count(); ++i) {
    List(*message.nested_type(i), out);
  }
}

std::string Listing(const FileDescriptor& file) {
  std::ostringstream out;
  out << "syntax " << FileDescriptor::SyntaxName(file.syntax()) << '\n' << "package " << file.package() << '\n';
  for (int i = 0; i < file.message_type_count(); ++i) {
    List(*file.message_type(i), out);
  }
  for (int i = 0; i < file.enum_type_count(); ++i) {
    out << "enum " << file.enum_type(i)->full_name() << '\n';
  }
  for (int i = 0; i < file.extension_count(); ++i) {
    out << "extension " << file.extension(i)->full_name() << '\n';
  }
  return out.str();
}

std::string CheckedIn() {
  std::ifstream file(CFM_SCHEMA_LISTING);
  EXPECT_TRUE(file.is_open()) << CFM_SCHEMA_LISTING;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(WireSchema, IsTheCheckedInListing) {
  const std::string now = Listing(*client_server::OpCacheSync::descriptor()->file());
  const std::string contract = CheckedIn();
  std::istringstream now_lines(now);
  std::istringstream contract_lines(contract);
  std::string now_line;
  std::string contract_line;
  std::string message;
  for (int number = 1; std::getline(contract_lines, contract_line) || !contract_line.empty(); ++number) {
    if (!std::getline(now_lines, now_line)) {
      now_line = "(end)";
    }
    if (contract_line.starts_with("message ")) {
      message = contract_line;
    }
    ASSERT_EQ(now_line, contract_line) << "line " << number << ", in " << message << "\nThe schema as it is:\n" << now;
    contract_line.clear();
  }
  EXPECT_EQ(now, contract);
}

TEST(WireSchema, HasNoRequiredFieldNoEnumerationAndNoMapOrGroup) {
  const FileDescriptor& file = *client_server::OpCacheSync::descriptor()->file();
  EXPECT_EQ(file.enum_type_count(), 0);
  for (int i = 0; i < file.message_type_count(); ++i) {
    const Descriptor& message = *file.message_type(i);
    EXPECT_EQ(message.nested_type_count(), 0) << message.full_name();
    for (int k = 0; k < message.field_count(); ++k) {
      const FieldDescriptor& field = *message.field(k);
      EXPECT_FALSE(field.is_required()) << field.full_name();
      EXPECT_EQ(field.number(), k + 1) << field.full_name();
      EXPECT_NE(field.type(), FieldDescriptor::TYPE_GROUP) << field.full_name();
    }
  }
}

}  // namespace
