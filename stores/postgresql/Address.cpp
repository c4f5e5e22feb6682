// The core file holds no content, but says where that is:
//
//     <Project MetadataType="postgresql" Service="team" Schema="project_metadata"
//              Project="4f6c0a52-9a0e-4f0a-8b57-9a3c8f1f2d11"/>
//
// "Service" is a name in the libpq service file of whoever opens the project. So the file, which may come from
// anywhere, names neither a host nor a user nor any other parameter of a connection; and it is no good before that
// user's settings allow the service and the schema. They do that in the group "korvex.project.metadata.postgresql",
// where "AllowedServers" lists them with blanks or commas between: "team" for the service with the usual schema,
// "team/parts" for the schema "parts". The first one is where new projects are made if nobody says otherwise. Without
// the setting, nothing is allowed.

#include "stores/postgresql/Address.hpp"

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <stdexcept>

#include "host/SettingsService.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/XmlFile.hpp"

namespace stores::postgresql {

const std::u16string& postgresqlName = *new std::u16string(u"postgresql");
const std::u16string& usualSchema = *new std::u16string(u"project_metadata");

namespace {

constexpr const char* settingsGroup = "korvex.project.metadata.postgresql";
constexpr const char* settingsKey = "AllowedServers";

const std::u16string& serviceKey = *new std::u16string(u"Service");
const std::u16string& schemaKey = *new std::u16string(u"Schema");
const std::u16string& projectKey = *new std::u16string(u"Project");

std::u16string readSetting(const Path& coreFile) {
    try {
        const auto settings = host::SettingsService::getSettingsRoot();
        return settings ? settings->getGroup(settingsGroup)->getText(settingsKey, "") : std::u16string();
    } catch (const std::exception&) {
        raise<MetadataReadFailure>(
            coreFile.text(), u"which servers are allowed cannot be found out: " + project::metadata::getCauseMessage());
    }
}

/// Whether `text` can be the name of a service or a schema: a name that cannot be told from several is none.
bool isName(const std::u16string& text) {
    return !text.empty() && text.find_first_of(u" \t\r\n,/") == text.npos && text.find(u'\0') == text.npos;
}

}  // namespace

std::optional<Address> readAddress(const Path& coreFile) {
    const XmlFile xml = readXmlFile(coreFile);
    if (!xml.version)
        return std::nullopt;
    const auto refuse = [&](const std::u16string& problem) { raise<MetadataReadFailure>(coreFile.text(), problem); };
    if (!xml.root)
        refuse(xml.problem);
    const std::u16string type = xml.root->get(metadataTypeKey());
    if (type != postgresqlName)
        refuse(u"its metadata is of the type \"" + type + u"\", not \"" + postgresqlName + u'"');
    Address address{{xml.root->get(serviceKey), xml.root->get(schemaKey)}, {}};
    if (!isName(address.server.service) || !isName(address.server.schema))
        refuse(u"it does not name a service and a schema where the metadata is");
    try {
        address.project = boost::uuids::string_generator()(toUtf8(xml.root->get(projectKey)));
    } catch (const std::runtime_error&) {
        refuse(u"it does not say which project of the schema it is");
    }
    return address;
}

void writeAddress(const Address& address, const Path& file) {
    project::metadata::MetadataNodeSpecification core(projectElementName);
    core.put(metadataTypeKey(), postgresqlName);
    core.put(serviceKey, address.server.service);
    core.put(schemaKey, address.server.schema);
    core.put(projectKey, fromUtf8(to_string(address.project)));
    project::metadata::writeToFile(core, file, true);
}

std::u16string getSettingName() {
    return u'"' + fromUtf8(settingsKey) + u"\" in \"" + fromUtf8(settingsGroup) + u'"';
}

std::vector<Server> getAllowedServers(const Path& coreFile) {
    const std::u16string setting = readSetting(coreFile);
    constexpr const char16_t* separators = u" \t\r\n,";
    std::vector<Server> servers;
    for (std::size_t begin = setting.find_first_not_of(separators); begin != setting.npos;) {
        const std::size_t end = std::min(setting.find_first_of(separators, begin), setting.size());
        const std::u16string entry = setting.substr(begin, end - begin);
        const std::size_t slash = std::min(entry.find(u'/'), entry.size());
        Server server{entry.substr(0, slash), slash < entry.size() ? entry.substr(slash + 1) : usualSchema};
        servers.push_back(std::move(server));
        begin = setting.find_first_not_of(separators, end);
    }
    return servers;
}

void requireAllowed(const Server& server, const Path& coreFile) {
    const std::vector<Server> allowed = getAllowedServers(coreFile);
    if (std::find(allowed.begin(), allowed.end(), server) != allowed.end())
        return;
    raise<MetadataReadFailure>(
        coreFile.text(), u"it leads to the service \"" + server.service + u"\" and the schema \"" + server.schema +
                             u"\", and to open a project there is not allowed before \"" + server.service + u'/' +
                             server.schema + u"\" is in the user's setting " + getSettingName());
}

}  // namespace stores::postgresql
