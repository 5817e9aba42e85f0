// What one side of a connection offers the other: a protocol that a server class may still
// customise.
#pragma once

#include <memory>

#include "Platform/Export.h"
#include "Platform/Object.h"
#include "Platform/Protocol.h"

namespace sevrin::platform {

class SEVRIN_EXPORT NSXPCInterface : public Object {
public:
    // `protocol` outlives the interface, as every protocol does.
    explicit NSXPCInterface(const Protocol& protocol) : protocol_(&protocol) {}

    [[nodiscard]] static std::shared_ptr<NSXPCInterface> interfaceWithProtocol(
        const Protocol& protocol) {
        return std::make_shared<NSXPCInterface>(protocol);
    }

    [[nodiscard]] const Protocol& protocol() const { return *protocol_; }
    void setProtocol(const Protocol& protocol) { protocol_ = &protocol; }

private:
    const Protocol* protocol_;
};

}  // namespace sevrin::platform
