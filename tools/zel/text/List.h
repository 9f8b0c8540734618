// Lists in words.
#pragma once

#include <string>

namespace zel::tool {

/// Appends `item` to a list such as "1, 2, 3".
inline void AddToList(std::string* list, const std::string& item) {
  *list += (list->empty() ? "" : ", ") + item;
}

}  // namespace zel::tool
