// name_service.h - Client of the kernel's name server "ose_ns": which process serves a name. The client
// hunts for the server, supervises it and has itself told when the name is there.
// Owner   each process for itself.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr const char* NAME_SERVER = "ose_ns";

constexpr SIGSELECT NS_HUNT_REQUEST         = 0x07B81;   // client -> name server: NsHuntRequest
constexpr SIGSELECT KVD_COMM_ONS_HUNT       = 0x90E00;   // kernel: name server there, no data
constexpr SIGSELECT KVD_COMM_ONS_DEAD       = 0x90E01;   // kernel: the name server died, no data
constexpr SIGSELECT KVD_COMM_SERVER_DEAD    = 0x90E02;   // kernel: the process that serves died, no data
constexpr SIGSELECT KVD_COMM_SERVER_UP_IND  = 0x90E03;   // sent by the process that serves, no data

/// The fixed part of the name server's hunt request. The name follows without terminator, and the
/// number of the signal that the name server gives back follows the name, unaligned.
struct NsHuntRequest {
    SIGSELECT sigNo;
    u32 user;                  // 0
    u32 nameLength;            // bytes, without terminator
    u32 reserved;
};
static_assert(offsetof(NsHuntRequest, nameLength) == 8 && sizeof(NsHuntRequest) == 16);
constexpr u32 NS_HUNT_NAME_OFFSET = 16;
constexpr u32 NS_HUNT_OVERHEAD = 24;      // what the signal is larger than the name

namespace node {

/// KVD_COMM_ONS_HUNT comes from the name server once it is there.
void NameService_hunt();
/// KVD_COMM_ONS_DEAD comes when it dies.
AttachRef NameService_attach(PROCESS nameServer);
/// KVD_COMM_SERVER_UP_IND comes from the process that serves `service` once it exists.
void NameService_ask(PROCESS nameServer, const char* service);

}  // namespace node
