// The client library of the switchboard: everything that most programs need, in one include.
//
//   SwitchboardClient   publish, find, post, subscribe
//   ComponentClient     talk to a component that was found
//   ComponentServer     be one
//   Result, Deadline    how every call ends, and when at the latest
//
// Left out, for experts: client/CustomProtocol.h, components with a protocol of their own.
#pragma once

#include "client/ComponentClient.h"
#include "client/ComponentServer.h"
#include "client/Deadline.h"
#include "client/Endpoint.h"
#include "client/Notification.h"
#include "client/Peer.h"
#include "client/Result.h"
#include "client/SwitchboardClient.h"
