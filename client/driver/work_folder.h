// A private folder in which the tag file has the name that the driver looks for.
#pragma once

#include <functional>
#include <string>

namespace plc_client::core {

class WorkFolder {
 public:
  // Is told what went wrong at the end, where nothing can be thrown.
  using Complain = std::function<void(const std::string&)>;

  // Makes the folder, named after the program that owns it, with a link called link_name to tag_file, and makes it the
  // working directory: the driver opens tag files there. Throws ClientError.
  WorkFolder(const std::string& tag_file, const std::string& link_name, const std::string& owner, Complain complain);
  // Goes back to where the process was and removes the folder.
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

 private:
  void remove();

  std::string folder_;
  std::string link_;
  int previous_ = -1;
  Complain complain_;
};

}  // namespace plc_client::core
