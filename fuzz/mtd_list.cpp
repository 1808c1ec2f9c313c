// The kernel's list of partitions.
#include <routerkit/mtd.h>

#include "support/flash_files.h"

void fuzz::run(std::string_view input) {
    unsigned length = take(input) % 8;
    const std::string name = text_of(input.substr(std::min(input.size(), size_t{40}), length));
    partition_list.put(input);
    mtd_partition_t found = {7, 7};
    int index = mtd_getinfo(name.c_str(), &found);
    const std::string list = text_of(input.substr(0, 2047));
    size_t heading = list.find('\n');
    bool listed = heading < list.size() && list.find(name, heading) < list.size();
    require(index == -1 || (index >= 0 && listed));
    require(index != -1 || (found.size == 7 && found.erasesize == 7));
    require(index == -1 || mtd_getinfo(name.c_str(), nullptr) == index);
}
