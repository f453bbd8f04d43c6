#include <agent/config/Names.h>

namespace Config {

namespace {

/// The transports that a name may be used with. The same number often means another service with another
/// transport (514 is a remote shell with TCP and the system log with UDP), so each name lists its own.
enum Transport : uint8_t { T = 1, U = 2, S = 4, TU = T | U, TUS = T | U | S, TS = T | S };

struct PortName {
  std::string_view name;
  uint16_t port;
  Transport transports;
};

constexpr PortName portNames[] = {
    {"echo", 7, TU},
    {"discard", 9, TUS},
    {"systat", 11, TU},
    {"daytime", 13, TU},
    {"qotd", 17, TU},
    {"chargen", 19, TU},
    {"ftp-data", 20, TS},
    {"ftp", 21, TS},
    {"ssh", 22, TS},
    {"telnet", 23, T},
    {"smtp", 25, T},
    {"time", 37, TU},
    {"nameserver", 42, TU},
    {"nicname", 43, T},
    {"whois", 43, T},
    {"tacacs", 49, TU},
    {"domain", 53, TU},
    {"bootps", 67, U},
    {"bootpc", 68, U},
    {"tftp", 69, U},
    {"gopher", 70, T},
    {"finger", 79, T},
    {"http", 80, TUS},
    {"www", 80, TUS},
    {"kerberos", 88, TU},
    {"hostname", 101, T},
    {"pop2", 109, T},
    {"pop3", 110, T},
    {"sunrpc", 111, TU},
    {"ident", 113, T},
    {"auth", 113, T},
    {"nntp", 119, T},
    {"ntp", 123, TU},
    {"epmap", 135, TU},
    {"netbios-ns", 137, TU},
    {"netbios-dgm", 138, TU},
    {"netbios-ssn", 139, TU},
    {"imap", 143, T},
    {"snmp", 161, TU},
    {"snmptrap", 162, TU},
    {"xdmcp", 177, U},
    {"bgp", 179, TS},
    {"irc", 194, TU},
    {"ldap", 389, TU},
    {"mobileip-agent", 434, U},
    {"https", 443, TUS},
    {"snpp", 444, T},
    {"microsoft-ds", 445, TU},
    {"submissions", 465, T},
    {"isakmp", 500, U},
    {"exec", 512, T},
    {"biff", 512, U},
    {"login", 513, T},
    {"who", 513, U},
    {"shell", 514, T},
    {"syslog", 514, U},
    {"printer", 515, T},
    {"talk", 517, TU},
    {"ntalk", 518, TU},
    {"router", 520, U},
    {"rip", 520, U},
    {"ripng", 521, U},
    {"uucp", 540, T},
    {"klogin", 543, T},
    {"kshell", 544, T},
    {"dhcpv6-client", 546, U},
    {"dhcpv6-server", 547, U},
    {"rtsp", 554, TU},
    {"nntps", 563, T},
    {"submission", 587, T},
    {"ipp", 631, TU},
    {"ldaps", 636, T},
    {"msdp", 639, T},
    {"ldp", 646, TU},
    {"netconf-ssh", 830, T},
    {"rsync", 873, T},
    {"domain-s", 853, TU},
    {"ftps-data", 989, T},
    {"ftps", 990, T},
    {"telnets", 992, T},
    {"imaps", 993, T},
    {"pop3s", 995, T},
    {"socks", 1080, T},
    {"ms-sql-s", 1433, T},
    {"ms-sql-m", 1434, U},
    {"l2tp", 1701, U},
    {"pptp", 1723, T},
    {"radius", 1812, TU},
    {"radius-acct", 1813, TU},
    {"mqtt", 1883, T},
    {"hsrp", 1985, U},
    {"nfs", 2049, TUS},
    {"gtp-control", 2123, U},
    {"gtp-user", 2152, U},
    {"m2ua", 2904, S},
    {"m3ua", 2905, S},
    {"stun", 3478, TU},
    {"ms-wbt-server", 3389, TU},
    {"mysql", 3306, T},
    {"m2pa", 3565, S},
    {"bfd", 3784, U},
    {"bfd-control", 3784, U},
    {"bfd-echo", 3785, U},
    {"diameter", 3868, TS},
    {"ipsec-nat-t", 4500, U},
    {"vxlan", 4789, U},
    {"sip", 5060, TUS},
    {"sips", 5061, TS},
    {"mdns", 5353, U},
    {"postgresql", 5432, T},
    {"amqp", 5672, TS},
    {"bfd-multihop", 4784, U},
    {"geneve", 6081, U},
    {"http-alt", 8080, TU},
    {"sua", 14001, S},
    {"s1ap", 36412, S},
    {"x2ap", 36422, S},
    {"ngap", 38412, S},
    {"xnap", 38422, S},
};

}  // namespace

std::optional<uint16_t> portNumber(std::string_view name, uint8_t protocol) {
  const uint8_t transport = protocol == protocolTcp    ? T
                            : protocol == protocolUdp  ? U
                            : protocol == protocolSctp ? S
                                                       : 0;
  for (const auto& row : portNames) {
    if (row.name == name && (row.transports & transport)) return row.port;
  }
  return {};
}

}  // namespace Config
