// How messages get from one process to the other: the only part of this example that is no business
// of the library's.
#pragma once

#include <cstddef>
#include <vector>

#include <Oxil.h>

namespace picker {

//! [message]
// What arrived. A SerializedData that reads it borrows the bytes.
struct Message {
    oxil::SerializationInfo info;
    std::vector<char> bytes;
};

enum class Received { MESSAGE, NOTHING_MORE, REFUSED };
//! [message]

// Two connected sockets, the second of which a new program inherits. The owner of the first waits
// no longer than a second for the rest of a message.
bool connect(int (&ends)[2]);

bool send(int socket, const oxil::SerializedData& data);

// Refuses what is too large or contradicts itself; the log tells why. The connection is of no more
// use then.
Received receive(int socket, Message& message);

}  // namespace picker
