// Carries an update over into the create request that it belongs to.
#ifndef CFM_SERVER_CONTRACT_MERGE_H
#define CFM_SERVER_CONTRACT_MERGE_H

#include <google/protobuf/message.h>

namespace cfm::contract {

// Every field of the update has a field of the same name and type in the create request. What is present in the update
// is taken over; sub-messages as a whole; lists always, since an empty one says that the list is empty now.
void MergeUpdate(const google::protobuf::Message& update, google::protobuf::Message* request);

}  // namespace cfm::contract

#endif
