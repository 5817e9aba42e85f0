// `switchboardctl query`: whether an identifier is published, and by whom.
#include <fmt/format.h>

#include "tools/Publisher.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

Columns columnsOfQuery(const std::string& wanted) {
    return Columns({{"id", true},
                    {"pid", true},
                    {"user", true},
                    {"uid", false},
                    {"gid", false},
                    {"process", true}},
                   wanted);
}

ExitStatus answerNo(const Invocation& invocation, const std::string& identifier,
                    const std::string& why) {
    if (invocation.options().isJson) {
        Json record = newRecord();
        addText(record, "id", identifier);
        record["found"] = false;
        invocation.answer("", record);
    }
    invocation.note(fmt::format("{}: {}", identifier, why));
    return ExitStatus::No;
}

ExitStatus query(const Invocation& invocation, const std::string& identifier) {
    Columns columns = columnsOfQuery(invocation.options().columns);
    SwitchboardClient client = invocation.connect();
    const EndpointPtr endpoint =
        invocation.require(client.query(identifier, invocation.deadline()));
    if (!endpoint) return answerNo(invocation, identifier, "nobody publishes it");
    const Result<Peer> publisher = publisherOf(endpoint, invocation.deadline());
    if (!publisher && publisher.error().code == CallError::Code::NoService)
        return answerNo(invocation, identifier, "its publisher does not listen any more");
    if (!publisher) throw publisherFailure(publisher.error(), identifier);

    const std::string user = userName(publisher->user);
    const std::string process = processName(publisher->process);
    const Columns::Cells row = {identifier,
                                std::to_string(publisher->process),
                                user,
                                std::to_string(publisher->user),
                                std::to_string(publisher->group),
                                process.empty() ? "-" : process};
    Json record = newRecord();
    addText(record, "id", identifier);
    record["found"] = true;
    record["pid"] = publisher->process;
    addText(record, "user", user);
    record["uid"] = publisher->user;
    record["gid"] = publisher->group;
    if (process.empty()) {
        record["process"] = nullptr;
    } else {
        addText(record, "process", process);
    }
    columns.fit(row);
    invocation.answerHeader(columns);
    invocation.answerRow(columns, row, record);
    return ExitStatus::Done;
}

}  // namespace

void addQuery(CommandLine& commandLine) {
    const auto identifier = std::make_shared<std::string>();
    CLI::App& verb = commandLine.addVerb(
        "query", "Tell who publishes an identifier; exit status 1 when nobody does",
        "query com.example.clock\nquery com.example.clock --output pid --no-legend",
        [identifier](const Invocation& invocation) { return query(invocation, *identifier); });
    verb.add_option("id", *identifier, "What it is published under")->type_name("ID")->required();
    commandLine.addColumns(verb);
}

}  // namespace sevrin
