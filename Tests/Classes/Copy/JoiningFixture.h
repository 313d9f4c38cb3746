// Joins of files in a folder of their own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Classes/Copy/FRXFileJoiningOperation.h"
#include "Tests/Classes/Copy/TransferFixture.h"

namespace ferrox::test {

class JoiningFixture : public ::testing::Test {
 protected:
  std::string path(const std::string& name = "master") const { return folder_.path() / name; }
  std::shared_ptr<FRXFileJoiningOperation> joinOf(const std::vector<std::string>& names) const {
    auto operation = std::make_shared<FRXFileJoiningOperation>(path());
    for (const auto& name : names) operation->addFile(path(name));
    return operation;
  }

  const TemporaryDirectory folder_;
};

}  // namespace ferrox::test
