#include "RawHttp.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace events_test {

int Connect(const std::string& from, const std::string& to, uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in local{}, remote{};
  local.sin_family = remote.sin_family = AF_INET;
  inet_pton(AF_INET, from.c_str(), &local.sin_addr);
  inet_pton(AF_INET, to.c_str(), &remote.sin_addr);
  remote.sin_port = htons(port);
  timeval timeout{30, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
      connect(fd, reinterpret_cast<sockaddr*>(&remote), sizeof remote) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

Reply Exchange(int fd, const std::string& request) {
  Reply reply;
  if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) return reply;
  std::string text;
  char buffer[4096];
  for (;;) {
    const size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos) {
      const size_t length = text.find("Content-Length: ");
      if (length != std::string::npos && text.size() >= end + 4 + std::strtoul(&text[length + 16], nullptr, 10)) {
        reply.status = std::atoi(text.c_str() + 9);
        reply.headers = text.substr(0, end);
        reply.body = text.substr(end + 4);
        return reply;
      }
    }
    const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
    if (got <= 0) return reply;
    text.append(buffer, static_cast<size_t>(got));
  }
}

Reply Send(const std::string& from, const std::string& to, uint16_t port, const std::string& request) {
  const int fd = Connect(from, to, port);
  if (fd < 0) return {};
  Reply reply = Exchange(fd, request);
  close(fd);
  return reply;
}

std::string Post(const std::string& path, const std::string& body) {
  return "POST " + path +
         " HTTP/1.1\r\nHost: plugin\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::set<std::string> ListeningSockets() {
  std::set<std::string> inodes, listening;
  if (DIR* fds = opendir("/proc/self/fd")) {
    while (dirent* entry = readdir(fds)) {
      char target[64] = {};
      const std::string link = std::string("/proc/self/fd/") + entry->d_name;
      if (readlink(link.c_str(), target, sizeof target - 1) > 0 && std::string(target).rfind("socket:[", 0) == 0)
        inodes.insert(std::string(target + 8, std::string(target).size() - 9));
    }
    closedir(fds);
  }
  std::ifstream table("/proc/net/tcp");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    unsigned slot, address, port, state;
    char inode[32] = {};
    if (std::sscanf(line.c_str(), " %u: %X:%X %*X:%*X %X %*s %*s %*s %*s %*s %31s", &slot, &address, &port, &state,
                    inode) == 5 &&
        state == 0x0A && inodes.count(inode) != 0) {
      in_addr in{address};
      listening.insert(std::string(inet_ntoa(in)) + ":" + std::to_string(port));
    }
  }
  return listening;
}

}  // namespace events_test
