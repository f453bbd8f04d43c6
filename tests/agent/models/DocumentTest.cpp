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
            "t:2:20: found /ietf-access-control-list:acls/acl[A]/name a second time, expected it once\n");
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

TEST(Document, KnowsTheColumnsOfXml) {
  const auto in = [](std::string_view inside) { return readAs(xmlOf(inside)); };
  const auto unknown = [](const char* place, const char* what) {
    return fmt::format(
        "t:{}: found the unknown /ietf-access-control-list:acls/{}, expected acl or "
        "attachment-points\n",
        place, what);
  };
  EXPECT_EQ(in("<x1/><x/><x1x/>"), unknown("2:1", "x1") + unknown("2:6", "x") + unknown("2:10", "x1x"));
  EXPECT_EQ(in("<!-- <x/> -->\n <x/>"), unknown("3:2", "x")) << "not the one in the comment";
  EXPECT_EQ(in("<x\n  xmlns=\"urn:x\"\n/><y/>"), unknown("2:1", "urn:x:x") + unknown("4:3", "y"))
      << "where the tag begins, not where it ends";
  EXPECT_EQ(in("<acl xmlns=\"\"><name>A</name><type>eth-acl-type</type></acl>"),
            "t:2:1: found an element acl without a namespace in /ietf-access-control-list:acls, expected "
            "elements in the namespace of their module\n");
}

/// A document says one thing of a list and of a place: whatever it says first is not lost in silence.
TEST(Document, HasEachThingOnce) {
  const auto openConfig = [](std::string_view root, std::string_view type, std::string_view action) {
    return fmt::format(
        R"("{0}": {{"acl-sets": {{"acl-set": [{{"name": "A", "type": "{1}", "config": {{"name": "A", "type": "{1}"}}, "acl-entries":
 {{"acl-entry": [{{"sequence-id": 5, "config": {{"sequence-id": 5}}, "actions": {{"config": {{"forwarding-action": "{2}"}}}}}}]}}}}]}},
 "interfaces": {{"interface": [{{"id": "e", "config": {{"id": "e"}}, "interface-ref": {{"config": {{"interface": "e"}}}},
 "ingress-acl-sets": {{"ingress-acl-set": [{{"set-name": "A", "type": "{1}", "config": {{"set-name": "A", "type": "{1}"}}}}]}}}}]}}}})",
        root, type, action);
  };
  const auto ietf = [](std::string_view name) {
    return fmt::format(
        R"("ietf-access-control-list:acls": {{"acl": [{{"name": "{0}", "type": "ipv4-acl-type", "aces": {{"ace": [{{"name": "10", "actions": {{"forwarding": "drop"}}}}]}}}}],
 "attachment-points": {{"interface": [{{"interface-id": "e", "ingress": {{"acl-sets": {{"acl-set": [{{"name": "{0}"}}]}}}}}}]}}}})",
        name);
  };
  const auto both = [](const std::string& a, const std::string& b) {
    return readAs("{" + a + ",\n" + b + "}").substr(0, 200);
  };
  const auto accept = openConfig("openconfig-acl:acl", "ACL_IPV4", "ACCEPT");
  EXPECT_TRUE(both(accept, openConfig("acl", "ACL_IPV4", "DROP"))
                  .starts_with("t:5:1: found \"acl\" a second time, expected each root once\n"));
  EXPECT_TRUE(
      both(accept, ietf("A"))
          .starts_with(
              "t:5:43: found ip access-list A a second time (/ietf-access-control-list:acls/acl[A]), expected each "
              "list once in a document\n"))
      << both(accept, ietf("A"));
  EXPECT_NE(both(accept, ietf("B")).find("expected one ip list in interface e: a second one cannot be bound"),
            std::string::npos);
  EXPECT_EQ(both(R"("ACL_TABLE": {})", ietf("A")),
            "t:2:1: found \"ietf-access-control-list:acls\" beside SONiC's tables, expected a document of "
            "one model\n");

  std::string twice = "{" + accept + "}";
  const size_t set = twice.find("{\"name\""), end = twice.find("]},\n \"interfaces\"");
  std::string other = twice.substr(set, end - set);
  for (size_t at = 0; (at = other.find("\"ACL_IPV4", at)) != std::string::npos; at += 10)
    other.replace(at, 9, "\"openconfig-acl:ACL_IPV4");
  twice.insert(end, ",\n" + other);
  EXPECT_TRUE(readAs(twice).starts_with("t:3:1: found ip access-list A a second time "))
      << "one key, written in two ways: " << readAs(twice);

  const std::string root = xmlOf("");
  EXPECT_EQ(readAs("<data xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\">" + root + root + "</data>"),
            "t:2:8: found \"ietf-access-control-list:acls\" a second time, expected each root once\n");
  EXPECT_TRUE(readAs("<data xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><ACL_TABLE xmlns=\"\"/></data>")
                  .starts_with("t:1:55: found an XML document with \"ACL_TABLE\" at its root"));
  EXPECT_TRUE(
      readAs("<acl xmlns=\"\"/>").starts_with("t:1:1: found an XML document with \"acl\" at its root"));
}

TEST(Document, TellsEveryMistakeOfOneLine) {
  EXPECT_EQ(
      readAs(std::string(open) + R"({"name": "A", "type": "ipv4-acl-type", "x": 1, "y": 2}]}})"),
      "t:1:83: found the unknown /ietf-access-control-list:acls/acl[A]/x, expected name, type or aces\n"
      "t:1:91: found the unknown /ietf-access-control-list:acls/acl[A]/y, expected name, type or aces\n");
}

TEST(Document, WarnsOfListsThatItReplaces) {
  const std::string document = std::string(open) + "\n" + entry + "]}}";
  const auto warnings = [](const std::vector<Config::Source>& sources) {
    const auto result = Models::read(sources);
    EXPECT_TRUE(result.model);
    std::string all;
    if (!result.model) return all;
    for (const auto& warning : result.model->notices.warnings)
      all += fmt::format("{}:{} {} {}\n", warning.place.file, warning.place.line, warning.code.kind().code,
                         warning.text);
    return all;
  };
  const std::string text = "\nip access-list A\n 5 permit tcp any any\n";
  EXPECT_EQ(warnings({{"a", text}, {"b", document}, {"c", text}, {"d", document}}),
            "b:2 list-replaced ip access-list A is in an earlier text, too: the first, a:2, is lost\n"
            "d:2 list-replaced ip access-list A is in an earlier text, too: the first, c:2, is lost\n");
  EXPECT_EQ(warnings({{"b", document}, {"c", text}}), "") << "a text goes on with the list";
  EXPECT_EQ(warnings({{"a", "ipv6 access-list A\n"}, {"b", document}}), "");
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
