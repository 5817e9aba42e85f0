// `switchboardctl post`: posts a notification to all who subscribed to its name.
#include "tools/NotificationText.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

struct PostOptions {
    Notification notification;
    std::vector<std::string> infoWords;
    std::string infoJson;
};

ExitStatus post(const Invocation& invocation, const PostOptions& options) {
    Notification notification = options.notification;
    if (!options.infoWords.empty() || !options.infoJson.empty())
        notification.userInfo = userInfoFromText(options.infoWords, options.infoJson);
    SwitchboardClient client = invocation.connect();
    invocation.require(client.post(notification, invocation.deadline()));
    if (invocation.options().isJson) {
        Json record = newRecord();
        addNotification(record, notification);
        invocation.answer("", record);
    }
    return ExitStatus::Done;
}

}  // namespace

void addPost(CommandLine& commandLine) {
    const auto options = std::make_shared<PostOptions>();
    CLI::App& verb = commandLine.addVerb(
        "post", "Post a notification to all who subscribed to its name",
        "post com.example.tick --source clock --info hour=12 minute=30\n"
        "post com.example.tick --info-json '{\"hour\": 12, \"is_noon\": false}'",
        [options](const Invocation& invocation) { return post(invocation, *options); });
    verb.add_option("name", options->notification.name, "The name of the notification")
        ->type_name("NAME")
        ->required();
    verb.add_option("--source", options->notification.source, "Who says so: any text")
        ->type_name("S");
    verb.add_option("--info", options->infoWords, "What else to say, as strings")->type_name("K=V");
    verb.add_option("--info-json", options->infoJson, "What else to say, with types")
        ->type_name("OBJECT");
}

}  // namespace sevrin
