#include "layout/layout.h"

#ifndef QUILLMERE_INSTALL_ROOT
#error "QUILLMERE_INSTALL_ROOT must name the install root of the host product"
#endif

// One unit, in this order: each path is built from one above it.
const std::string path_vkx = QUILLMERE_INSTALL_ROOT;
const std::string path_vkx_db_images = path_vkx + "/db/images";
const std::string path_vkx_bin = path_vkx + "/bin";
const std::string path_vkx_admincmd = path_vkx_bin + "/admincmd";
const std::string path_rec_unfold = path_vkx_bin + "/rec_unfold";
const std::string path_qvroll = path_vkx_admincmd + "/qvroll";
const std::string path_qvmeta = path_vkx_admincmd + "/qvmeta";

const std::string ACTION_DUMP_BACKUP_SET_LIST = "dump_backup_set_list";
const std::string ACTION_DUMP_BACKUP_SET = "dump_backup_set";
const std::string ACTION_LIST_BACKUPS = "list_backups";
const std::string ACTION_DUMP_BACKUP = "dump_backup";

const char* const prog = "quillmere";

std::int32_t verbose = 0;

char line_buf[kLineBufSize];
