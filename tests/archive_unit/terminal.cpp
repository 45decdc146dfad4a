#include "terminal.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstddef>
#include <iostream>

#include <gtest/gtest.h>

Terminal::Terminal(const std::string& typed) : outer_(posix_openpt(O_RDWR | O_NOCTTY)) {
  grantpt(outer_);
  unlockpt(outer_);
  inner_ = open(ptsname(outer_), O_RDWR | O_NOCTTY);
  termios settings{};
  tcgetattr(inner_, &settings);
  settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
  tcsetattr(inner_, TCSANOW, &settings);
  EXPECT_EQ(write(outer_, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
}

Terminal::~Terminal() {
  close(outer_);
}

std::string Terminal::With(const std::vector<int>& descriptors,
                           const std::function<void()>& call) const {
  std::vector<int> former;
  for (const int descriptor : descriptors) {
    former.push_back(dup(descriptor));
    dup2(inner_, descriptor);
  }
  clearerr(stdin);
  std::cin.clear();
  call();
  for (std::size_t i = 0; i < descriptors.size(); ++i) {
    dup2(former[i], descriptors[i]);
    close(former[i]);
  }
  close(inner_);
  std::string shown;
  for (char c = '\0'; read(outer_, &c, 1) == 1;) {
    shown += c;
  }
  return shown;
}
