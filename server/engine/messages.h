// What the end points report, as the messages of the contract.
#ifndef CFM_SERVER_ENGINE_MESSAGES_H
#define CFM_SERVER_ENGINE_MESSAGES_H

#include <cstdint>

#include "client_server.pb.h"
#include "contract/key.h"
#include "pdu/ethernet.h"
#include "pdu/linktrace.h"
#include "pdu/mac_address.h"
#include "protocol/ccm_defect.h"
#include "protocol/mep_output.h"
#include "protocol/status.h"

namespace cfm::engine {

client_server::StatusLocalMaintenanceEndpoint ToMessage(const contract::EndpointKey& mep,
                                                        const protocol::LocalStatus& status);
client_server::StatusRemoteMaintenanceEndpoint ToMessage(const contract::EndpointKey& mep, std::uint16_t remote_mep_id,
                                                         const protocol::RemoteStatus& status);
client_server::RemovedLocalMaintenanceEndpoint Removed(const contract::EndpointKey& mep);
client_server::RemovedRemoteMaintenanceEndpoint Removed(const contract::EndpointKey& mep, std::uint16_t remote_mep_id);

client_server::OpLinktraceStarted LinktraceStarted(const contract::EndpointKey& mep, std::uint32_t transaction_id,
                                                   const pdu::MacAddress& target, std::uint16_t target_mep_id,
                                                   std::uint8_t ttl);
client_server::OpLinktraceReplyRx ToMessage(const contract::EndpointKey& mep, const pdu::EthernetHeader& header,
                                            const pdu::Ltr& reply);
client_server::OpLinktraceEnded LinktraceEnded(const contract::EndpointKey& mep, std::uint32_t transaction_id);

client_server::OpLoopbackEnded ToMessage(std::uint32_t trigger_id, const protocol::LoopbackResult& result);
client_server::OpDelayMeasurementEnded ToMessage(std::uint32_t trigger_id, const protocol::DelayResult& result);
client_server::OpDelayMeasurementSessionEnded ToMessage(const protocol::SessionReport& report);

/// An address as a field of six octets.
std::string ToField(const pdu::MacAddress& address);

/// "another level: 3 from 00:11:22:33:44:55, MEP 7, interval 4": for the log.
std::string ToText(const protocol::OffendingCcm& offender);
std::string ToText(const pdu::MacAddress& address);

}  // namespace cfm::engine

#endif
