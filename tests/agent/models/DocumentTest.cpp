#include "Support.h"

namespace Models {
namespace {

constexpr const char* open = "{\"ietf-access-control-list:acls\": {\"acl\": [";
constexpr const char* entry =
    R"({"name": "A", "type": "ipv4-acl-type", "aces": {"ace": [{"name": "10", "actions": {"forwarding": "drop"}}]}})";

TEST(Document, IsReadAsJsonToTheLetter) {
  const struct {
    const char* why;
    std::string document;
    const char* result;
  } table[] = {
      {"a document that is cut off", "{\"a\": 1",
       "t:1:7: found no JSON (unexpected end of input; expected '}'), expected JSON with each member once\n"},
      {"a comma too many", "{\"a\": [1,\n ]}",
       "t:2:2: found no JSON (unexpected ']'; expected '[', '{', or a literal), expected JSON with each "
       "member once\n"},
      {"a comment", "{\"a\": 1} // x",
       "t:1:10: found no JSON (invalid literal), expected JSON with each member once\n"},
      {"a member twice", "{\"a\": 1,\n \"b\": {}, \"a\": 2}",
       "t:2:11: found \"a\" a second time, expected JSON with each member once\n"},
      {"one twice, written in two ways",
       std::string(open) +
           "\n{\"name\": \"A\", \"ietf-access-control-list:name\": \"B\", \"type\": \"ipv4-acl-type\"}]}}",
       "t:2:15: found /ietf-access-control-list:acls/acl[A]/name a second time, expected it once\n"},
      {"no list at all", "{\"a\": 1}",
       "t:1:2: found a JSON document with \"a\" at its root, expected ietf-access-control-list:acls, "
       "openconfig-acl:acl, or ACL_TABLE and ACL_RULE\n"},
      {"what is something else is told in one line", "{\"a\": 1,\n \"b\": 2, \"c\": 3}",
       "t:1:2: found a JSON document with \"a\" and 2 more at its root, expected "
       "ietf-access-control-list:acls, openconfig-acl:acl, or ACL_TABLE and ACL_RULE\n"},
      {"nothing at all", "{}",
       "t:1:1: found a document without access lists, expected ietf-access-control-list:acls, "
       "openconfig-acl:acl, or ACL_TABLE and ACL_RULE\n"},
      {"an array", "[{}]", "t:1:1: found an array, expected an object\n"},
      {"another root beside", std::string(open) + "]},\n\"other:b\": {}}",
       "t:2:1: found \"other:b\" at the root of a document, expected ietf-access-control-list:acls, "
       "openconfig-acl:acl, or ACL_TABLE and ACL_RULE\n"},
      {"a number with blanks behind it, and a line", std::string(open) + "{\"name\" : 5 \n, \"type\": 7}]}}",
       "t:1:45: found 5 at /ietf-access-control-list:acls/acl[5]/name, expected a text\n"
       "t:2:3: found 7 at /ietf-access-control-list:acls/acl[5]/type, expected a text\n"},
  };
  for (const auto& row : table) EXPECT_EQ(readAs(row.document), row.result) << row.why;
  EXPECT_NE(readAs("{\"a\":" + std::string(100000, '[')).find("more than 64 deep"), std::string::npos);
  EXPECT_EQ(readAs("\xef\xbb\xbf" + std::string(open) + entry + "]}}"),
            "ip access-list A\n   10 deny ip any any\n")
      << "a byte order mark";
}

std::string xmlOf(std::string_view inside) {
  return fmt::format("<acls xmlns=\"urn:ietf:params:xml:ns:yang:ietf-access-control-list\">\n{}</acls>",
                     inside);
}

TEST(Document, IsReadAsXml) {
  const std::string list =
      "<acl><name>A</name><type>ipv4-acl-type</type><aces>\n"
      "<ace><name>web</name><matches><tcp><destination-port><port>443</port></destination-port></tcp></"
      "matches>\n"
      "<actions><forwarding>accept</forwarding></actions></ace>\n"
      "<ace><name>rest</name><matches/><actions><forwarding>drop</forwarding></actions></ace>\n"
      "</aces></acl>\n";
  const std::string text =
      "ip access-list A\n   remark web\n   10 permit tcp any any eq 443\n   remark rest\n   20 deny ip any "
      "any\n";
  EXPECT_EQ(readAs(xmlOf(list)), text);
  EXPECT_EQ(
      readAs("<?xml version=\"1.0\"?><!-- x --><config xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" +
             xmlOf(list) + "</config>"),
      text);
  EXPECT_EQ(readAs("<data xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + xmlOf(list) + "</data>"),
            text);
  EXPECT_EQ(
      readAs(xmlOf(
          "<acl><name>A</name><type "
          "xmlns:i=\"urn:ietf:params:xml:ns:yang:ietf-access-control-list\">i:ipv6-acl-type</type></acl>\n"
          "<acl><name>B</name><type> eth-acl-type </type></acl>")),
      "ipv6 access-list A\nmac access-list B\n");
}

TEST(Document, RefusesXmlThatIsNone) {
  const auto in = [](std::string_view inside) { return readAs(xmlOf(inside)); };
  EXPECT_EQ(readAs("<acls>\n<b></acls>").substr(0, 22), "t:2:11: found no XML (");
  EXPECT_EQ(readAs("<acls/>"),
            "t:1:1: found an XML document with \"acls\" at its root, expected ietf-access-control-list:acls, "
            "openconfig-acl:acl, or ACL_TABLE and ACL_RULE\n");
  EXPECT_EQ(readAs("<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/hostname\">]>\n<a>&e;</a>"),
            "t:1:1: found a document type or an entity, expected XML\n");
  EXPECT_EQ(in("<acl operation=\"delete\"><name>A</name></acl>"),
            "t:2:1: found the attribute \"operation\", expected XML\n");
  EXPECT_EQ(in("<acl>text<name>A</name></acl>"),
            "t:2:10: found a text and elements in one element, expected XML\n");
  EXPECT_EQ(in("<acl><name>A</name><name>B</name><type>eth-acl-type</type></acl>"),
            "t:2:6: found /ietf-access-control-list:acls/acl[A]/name a second time, expected it once\n");
  EXPECT_EQ(in("<acl><name>A</name><type>eth-acl-type</type></acl>\n<acl><name>A</name><type>eth-acl-type</"
               "type></acl>"),
            "t:3:1: found /ietf-access-control-list:acls/acl[A] a second time, expected it once\n");
  EXPECT_EQ(in("<acl><name>A</name><type xmlns:o=\"urn:o\">o:eth-acl-type</type></acl>"),
            "t:2:20: found \"o:eth-acl-type\" at /ietf-access-control-list:acls/acl[A]/type, expected a name "
            "of ietf-access-control-list\n");
  EXPECT_EQ(in("<acl><name>A</name><type>eth-acl-type</type><o:x xmlns:o=\"urn:o\">1</o:x></acl>"),
            "t:2:45: found the unknown /ietf-access-control-list:acls/acl[A]/urn:o:x, expected name, type or "
            "aces\n");
  EXPECT_NE(in(std::string(100, '<')).find("no XML"), std::string::npos);
}

TEST(Document, StandsAmongTexts) {
  const std::string document = std::string(open) + "\n" + entry + "]}}";
  const auto textOf = [](const Config::Result& result) {
    return result.model ? Config::textOf(*result.model) : std::string("none");
  };
  const std::string before = "ip access-list A\n 5 permit tcp any any\ninterface e\n ip access-group A in\n";
  EXPECT_EQ(textOf(read({{"a", before}, {"b", document}})),
            "ip access-list A\n   10 deny ip any any\ninterface e\n   ip access-group A in\n")
      << "a document has whole lists";
  EXPECT_EQ(textOf(read({{"a", document}, {"b", "ip access-list A\n 5 permit tcp any any\n"}})),
            "ip access-list A\n   5 permit tcp any any\n   10 deny ip any any\n");
  EXPECT_EQ(textOf(read({{"a", before}})), textOf(Config::read({{"a", before}})));

  const auto wrong = read({{"a", "x\n"}, {"b", "{\"a\": 1}"}, {"c", "y\n"}});
  std::string files;
  for (const auto& mistake : wrong.mistakes) files += mistake.file;
  EXPECT_EQ(files, "abc") << "all are read, and told in their order";
  EXPECT_EQ(read({{"a", "x\n"}, {"b", "{\"a\": 1}"}}, {}, 1).mistakes.size(), 1u);
}

TEST(Document, KnowsWhereThingsStand) {
  const std::string document = std::string(open) + "\n" + entry +
                               "],\n\"attachment-points\": {\"interface\": [{\"interface-id\": \"e\", "
                               "\"ingress\": {\"acl-sets\": {\"acl-set\":\n  [{\"name\": \"A\"}]}}}]}}}";
  const auto result =
      read({{"a", "ip access-list B\n 10 permit ip 10.0.0.1 0.0.0.0 any\n"}, {"doc.json", document}});
  ASSERT_TRUE(result.model) << result.mistakes.at(0).str();
  const auto& notices = result.model->notices;
  EXPECT_EQ(notices.texts, (std::vector<std::string>{"a", "doc.json"}));
  EXPECT_EQ(notices.placeOf(notices.lists, {Acl::AclType::ip, "A"}), (Agent::Place{"doc.json", 2, 1}));
  EXPECT_EQ(notices.placeOf(notices.bindings, {Acl::AclType::ip, Acl::AclDirection::in, "e"}),
            (Agent::Place{"doc.json", 4, 4}));
}

}  // namespace
}  // namespace Models
