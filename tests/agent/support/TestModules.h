#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace TestSupport {

/// A folder with YANG modules of the test's own, which have the names of real ones and allow less: a list may
/// have a name of four letters, protocols go up to 50 and are not 17, and there is little else.
class TestModules {
 public:
  TestModules() {
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "ietf-access-control-list.yang") << acl;
    std::ofstream(dir_ / "ietf-interfaces@2018-02-20.yang") << interfaces;
  }
  ~TestModules() { std::filesystem::remove_all(dir_); }
  TestModules(const TestModules&) = delete;
  TestModules& operator=(const TestModules&) = delete;

  std::string dir() const { return dir_; }

 private:
  static constexpr const char* acl = R"(module ietf-access-control-list {
  yang-version 1.1; namespace "urn:ietf:params:xml:ns:yang:ietf-access-control-list"; prefix acl;
  import ietf-interfaces { prefix if; }
  feature families;
  identity kind; identity ipv4-acl-type { base kind; }
  identity verdict; identity accept { base verdict; }
  container acls {
    list acl {
      key name; leaf name { type string { length "1..4"; } }
      leaf type { type identityref { base kind; } }
      container aces { list ace {
        key name; ordered-by user; leaf name { type string; }
        container matches { container ipv4 { if-feature families;
          leaf protocol { type uint8 { range "0..50"; } must ". != 17"; } } }
        container actions { leaf forwarding { type identityref { base verdict; } mandatory true; } }
        container statistics { config false;
          leaf matched-packets { type uint64; } leaf matched-octets { type uint64; mandatory true; } }
      } }
    }
    container attachment-points { list interface {
      key interface-id; leaf interface-id { type leafref { path "/if:interfaces/if:interface/if:name"; } }
      container ingress { container acl-sets { list acl-set {
        key name; ordered-by user; leaf name { type leafref { path "/acls/acl/name"; } } } } }
    } }
  }
})";
  static constexpr const char* interfaces = R"(module ietf-interfaces {
  yang-version 1.1; namespace "urn:ietf:params:xml:ns:yang:ietf-interfaces"; prefix if;
  container interfaces { list interface { key name; leaf name { type string; } } }
})";

  const std::filesystem::path dir_ =
      std::filesystem::path(testing::TempDir()) / fmt::format("velo-modules-{}", getpid());
};

}  // namespace TestSupport
