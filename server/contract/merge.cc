#include "contract/merge.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/reflection.h>

#include <cstdint>
#include <cstdlib>

namespace cfm::contract {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

void MergeUpdate(const Message& update, Message* request) {
  const auto* source = update.GetReflection();
  const auto* target = request->GetReflection();
  for (int i = 0; i < update.GetDescriptor()->field_count(); ++i) {
    const FieldDescriptor* from = update.GetDescriptor()->field(i);
    const FieldDescriptor* to = request->GetDescriptor()->FindFieldByName(from->name());
    if (from->is_repeated()) {
      target->GetMutableRepeatedFieldRef<uint32_t>(request, to)
          .CopyFrom(source->GetRepeatedFieldRef<uint32_t>(update, from));
      continue;
    }
    if (!source->HasField(update, from)) continue;
    switch (from->cpp_type()) {
      case FieldDescriptor::CPPTYPE_UINT32:
        target->SetUInt32(request, to, source->GetUInt32(update, from));
        break;
      case FieldDescriptor::CPPTYPE_BOOL:
        target->SetBool(request, to, source->GetBool(update, from));
        break;
      case FieldDescriptor::CPPTYPE_STRING:
        target->SetString(request, to, source->GetString(update, from));
        break;
      case FieldDescriptor::CPPTYPE_MESSAGE:
        target->MutableMessage(request, to)->CopyFrom(source->GetMessage(update, from));
        break;
      default:
        std::abort();  // the schema has no update with a field of another type
    }
  }
}

}  // namespace cfm::contract
