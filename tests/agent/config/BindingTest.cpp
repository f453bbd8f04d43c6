#include "Support.h"

namespace Config {
namespace {

using Acl::AclDirection;
using Acl::AclType;

/// "TYPE NAME DIRECTION INTERFACE" for each binding, in order.
std::string bindingsOf(std::string_view text) {
  std::string all;
  for (const auto& [key, list] : modelOf(text).bindings) {
    all += std::string(stringValue(key.type)) + " " + list + " " + std::string(stringValue(key.direction)) +
           " " + key.interface + "\n";
  }
  return all;
}

/// "NAME: MEMBER MEMBER" for each entry.
std::string interfacesOf(const std::map<std::string, std::vector<std::string>>& entries) {
  std::string all;
  for (const auto& [name, interfaces] : entries) {
    all += name + ":";
    for (const auto& interface : interfaces) all += " " + interface;
    all += "\n";
  }
  return all;
}

TEST(Binding, IsOneListAKindAndDirection) {
  const std::string start = "interface e1\nip access-group A in\n";
  const struct {
    const char* why;
    const char* text;
    const char* bindings;
  } table[] = {
      {"a list that is not defined may be bound", "", "ip A in e1\n"},
      {"the kinds are apart", "ipv6 access-group A in\nmac access-group M in\n",
       "ip A in e1\nipv6 A in e1\nmac M in e1\n"},
      {"the directions are apart", "ip access-group B out\n", "ip A in e1\nip B out e1\n"},
      {"a second replaces the first", "ip access-group B in\n", "ip B in e1\n"},
      {"the interfaces are apart, names case-sensitive", "interface E1\nip access-group B in\n",
       "ip B in E1\nip A in e1\n"},
      {"an interface named again is continued", "interface e2\ninterface e1\nip access-group B out\n",
       "ip A in e1\nip B out e1\n"},
      {"an interface of any name", "interface GigabitEthernet2/0.7\nip access-group B out\n",
       "ip A in e1\nip B out GigabitEthernet2/0.7\n"},
      {"taken back without the list's name", "no ip access-group in\n", ""},
      {"taken back with the list's name", "no ip access-group A in\n", ""},
      {"another list is not there to be taken back", "no ip access-group B in\n", "ip A in e1\n"},
      {"another direction either", "no ip access-group out\n", "ip A in e1\n"},
      {"another kind either", "no mac access-group in\n", "ip A in e1\n"},
      {"a list may be named like a direction", "ip access-group out in\nno ip access-group out out\n",
       "ip out in e1\n"},
      {"all of an interface",
       "ipv6 access-group B out\ninterface e2\nmac access-group C in\nno interface e1\n", "mac C in e2\n"},
      {"an interface that says nothing", "no interface e9\n", "ip A in e1\n"},
  };
  for (const auto& row : table) {
    EXPECT_EQ(bindingsOf(start + row.text), row.bindings) << row.why;
  }
}

TEST(PortChannel, HasMembers) {
  const struct {
    const char* why;
    const char* text;
    const char* channels;
  } table[] = {
      {"one member", "port-channel po1 members e1\n", "po1: e1\n"},
      {"members in the order of the text", "port-channel po1 members e3 e1 e2\n", "po1: e3 e1 e2\n"},
      {"given again, the new members are the members",
       "port-channel po1 members e1 e2\nport-channel po1 members e2 e3\n", "po1: e2 e3\n"},
      {"a member that was given up is free",
       "port-channel po1 members e1 e2\nport-channel po1 members e2\nport-channel po2 members e1\n",
       "po1: e2\npo2: e1\n"},
      {"an interface of its own that can be bound before",
       "interface po1\nip access-group A in\nport-channel po1 members e1\n", "po1: e1\n"},
      {"taken back by name", "port-channel po1 members e1\nno port-channel po1\n", ""},
      {"its members are free then",
       "port-channel po1 members e1\nno port-channel po1\nport-channel po2 members e1\n", "po2: e1\n"},
      {"its name is then one like others",
       "port-channel po1 members e1\nno port-channel po1\nport-channel po2 members po1\n", "po2: po1\n"},
      {"taken back as it was said", "port-channel po1 members e1 e2\nno port-channel po1 members e2 e1\n",
       ""},
      {"other members are not there to be taken back",
       "port-channel po1 members e1 e2\nno port-channel po1 members e1\n", "po1: e1 e2\n"},
      {"what is not there is no mistake", "no port-channel po9\n", ""},
  };
  for (const auto& row : table)
    EXPECT_EQ(interfacesOf(modelOf(row.text).portChannels), row.channels) << row.why;
}

TEST(MirrorSession, HasDestinations) {
  const struct {
    const char* why;
    const char* text;
    const char* sessions;
  } table[] = {
      {"one destination", "mirror session W destination e9\n", "W: e9\n"},
      {"several destinations", "mirror session W destination e9 e8\n", "W: e9 e8\n"},
      {"given again it is another", "mirror session W destination e9\nmirror session W destination e8\n",
       "W: e8\n"},
      {"sessions may share a destination",
       "mirror session W destination e9\nmirror session X destination e9\n", "W: e9\nX: e9\n"},
      {"taken back by name", "mirror session W destination e9\nno mirror session W\n", ""},
      {"taken back as it was said", "mirror session W destination e9\nno mirror session W destination e9\n",
       ""},
      {"another destination is not there",
       "mirror session W destination e9\nno mirror session W destination e8\n", "W: e9\n"},
      {"what is not there is no mistake", "no mirror session W\n", ""},
      {"a rule may name it before",
       "ip access-list A\npermit ip any any mirror session W\nmirror session W destination e9\n", "W: e9\n"},
  };
  for (const auto& row : table)
    EXPECT_EQ(interfacesOf(modelOf(row.text).mirrorSessions), row.sessions) << row.why;
}

}  // namespace
}  // namespace Config
