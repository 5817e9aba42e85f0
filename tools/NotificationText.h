// Notifications as text and from text: what `post` takes and `monitor` shows.
#pragma once

#include <string>
#include <vector>

#include "Platform/Value.h"
#include "client/Notification.h"
#include "tools/Json.h"

namespace sevrin {

// The user info that the words `KEY=VALUE` say, all values strings, on top of the JSON object that
// `json` says, if it is not empty. Of equal keys the last one counts. Throws Failure for words and
// texts that are nothing of the kind.
[[nodiscard]] platform::Dictionary userInfoFromText(const std::vector<std::string>& words,
                                                    const std::string& json);

// "key=value key=value": strings as they are if nothing in them could be misread, everything else
// as JSON. "-" for no user info.
[[nodiscard]] std::string textOf(const std::optional<platform::Dictionary>& userInfo);

// Adds name, source and info to `record`; null for what there is not.
void addNotification(Json& record, const Notification& notification);

}  // namespace sevrin
