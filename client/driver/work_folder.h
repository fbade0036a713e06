// A private folder in which the tag file has the name that the driver looks for.
#pragma once

#include <string>

namespace plc_host {

class WorkFolder {
 public:
  // Makes the folder with a link called link_name to tag_file, and makes it the working directory: the driver opens tag
  // files there. Throws HostError.
  WorkFolder(const std::string& tag_file, const std::string& link_name);
  // Goes back to where the process was and removes the folder.
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

 private:
  void remove();

  std::string folder_;
  std::string link_;
  int previous_ = -1;
};

}  // namespace plc_host
