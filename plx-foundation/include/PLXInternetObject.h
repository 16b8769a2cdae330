#pragma once

#include "PLXIPAddress.h"
#include "PLXObject.h"

// What a protocol client is built on: the address and the port of its peer.
class PLXInternetObject : public PLXObject {
 public:
  PLXInternetObject() = default;
  PLXInternetObject(PLXIPAddress const& address_i, PLXUInt16 port_i) : myAddress(address_i), myPort(port_i) {}
  PLXInternetObject(PLXInternetObject const&) = default;
  PLXInternetObject& operator=(PLXInternetObject const&) = default;
  virtual ~PLXInternetObject() = default;

 protected:
  PLXIPAddress myAddress;
  PLXUInt16 myPort = 0;
};
