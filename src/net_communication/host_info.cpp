// Network information of the camera, for diagnostics.
#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "net_communication/net_communication.h"

int get_eth0_address(char *text) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct ifreq request;
    memset(&request, 0, sizeof request);
    snprintf(request.ifr_name, sizeof request.ifr_name, "%s", "eth0");
    int ret = ioctl(fd, SIOCGIFADDR, &request);
    if (ret < 0) {
        return ret;
    }
    const sockaddr_in *address = reinterpret_cast<const sockaddr_in *>(&request.ifr_addr);
    char dotted[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address->sin_addr, dotted, sizeof dotted);
    strcpy(text, dotted);
    close(fd);
    return 0;
}

int print_host_addresses() {
    char name[128];
    memset(name, 0, sizeof name);
    gethostname(name, sizeof name - 1);
    struct hostent *host = gethostbyname(name);
    if (host == nullptr || host->h_addrtype != AF_INET) {
        return -1;
    }
    printf("hostname:%s\naddress list", host->h_name);
    for (char **entry = host->h_addr_list; *entry != nullptr; ++entry) {
        char dotted[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, *entry, dotted, sizeof dotted);
        printf("%s/t", dotted);
    }
    return 0;
}
