#include "node/name_service.h"

#include "ose/ose.h"

#include <cstring>

namespace node {

void NameService_hunt()
{
    Signal* found = ose::alloc(sizeof(SIGSELECT), KVD_COMM_ONS_HUNT);
    ose::hunt(NAME_SERVER, 0, nullptr, &found);
}

AttachRef NameService_attach(PROCESS nameServer)
{
    Signal* dead = ose::alloc(sizeof(SIGSELECT), KVD_COMM_ONS_DEAD);
    return ose::attach(&dead, nameServer);
}

void NameService_ask(PROCESS nameServer, const char* service)
{
    const u32 length = static_cast<u32>(std::strlen(service));
    Signal* sig = ose::alloc(length + NS_HUNT_OVERHEAD, NS_HUNT_REQUEST);
    auto* req = reinterpret_cast<NsHuntRequest*>(sig);
    req->user = 0;
    req->nameLength = length;
    char* const name = reinterpret_cast<char*>(sig) + NS_HUNT_NAME_OFFSET;
    std::memcpy(name, service, length);
    std::memcpy(name + length, &KVD_COMM_SERVER_UP_IND, sizeof KVD_COMM_SERVER_UP_IND);
    ose::send(&sig, nameServer);
}

}  // namespace node
