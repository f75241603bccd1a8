// The configuration framework's response builder and renderer.
#include "schedcli/platform/acfg.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

struct acfg_handle {
  struct Block {
    uint32_t element = 0;  // 0 for a configuration group's text
    uint32_t order = 0;
    bool declared = false;
    std::string text;
  };
  std::vector<Block> blocks;  // in declaration order; rendering sorts by order, stably

  Block *element(uint32_t id) {
    for (Block &block : blocks) {
      if (block.declared && block.element == id) return &block;
    }
    return nullptr;
  }
};

namespace {

// Appends text, indenting each of its lines by two blanks when asked.
void append(std::string &out, const char *text, bool indent) {
  bool line_start = out.empty() || out.back() == '\n';
  for (const char *c = text; *c; c++) {
    if (indent && line_start && *c != '\n') out += "  ";
    out += *c;
    line_start = *c == '\n';
  }
}

}  // namespace

extern "C" {

uint32_t acfg_hdl_init(acfg_handle **handle) {
  if (!handle) return ACFG_ERR_BAD_ARGUMENT;
  *handle = new (std::nothrow) acfg_handle;
  return *handle ? 0 : ACFG_ERR_NO_MEMORY;
}

void acfg_hdl_free(acfg_handle *handle) { delete handle; }

uint32_t acfg_cfg_type_get(const acfg_message *message) { return message ? message->cfg_type : 0; }

uint32_t acfg_vsh_execution_filter_mode_get(const acfg_message *message) {
  return message ? message->filter_mode : 0;
}

const char *acfg_startup_cfg_uri_prefix_get(const acfg_message *message) {
  return message ? message->startup_prefix : nullptr;
}

const char *acfg_startup_debug_cfg_uri_prefix_get(const acfg_message *message) {
  return message ? message->startup_debug_prefix : nullptr;
}

const char *acfg_uri_complete(const char *prefix, const char *middle, const char *name) {
  if (!prefix) return nullptr;
  static thread_local std::string uri;
  uri = std::string(prefix) + (middle ? middle : "") + (name ? name : "");
  return uri.c_str();
}

uint32_t acfg_elem_add(acfg_handle *handle, uint32_t /*component*/, uint32_t element, uint32_t order) {
  if (!handle) return ACFG_ERR_BAD_ARGUMENT;
  if (handle->element(element)) return ACFG_ERR_DUPLICATE;
  handle->blocks.push_back({element, order, true, {}});
  return 0;
}

uint32_t acfg_elem_str_add_indent(acfg_handle *handle, uint32_t element, const char *text, int indent) {
  if (!handle || !text) return ACFG_ERR_BAD_ARGUMENT;
  acfg_handle::Block *block = handle->element(element);
  if (!block) return ACFG_ERR_NO_ELEMENT;
  append(block->text, text, indent == 1);
  return 0;
}

uint32_t acfg_elem_dependency_add(acfg_handle *handle, uint32_t element, uint32_t, uint32_t) {
  if (!handle) return ACFG_ERR_BAD_ARGUMENT;
  // Rendering is by order number alone here; a dependency only has to name a declared element.
  return handle->element(element) ? 0 : ACFG_ERR_NO_ELEMENT;
}

uint32_t acfg_elem_group_config_str_add(acfg_handle *handle, uint32_t /*group*/, uint32_t, uint32_t order,
                                        const char *text) {
  if (!handle || !text) return ACFG_ERR_BAD_ARGUMENT;
  acfg_handle::Block group{0, order, false, {}};
  append(group.text, text, false);
  handle->blocks.push_back(std::move(group));
  return 0;
}

uint32_t acfg_respond(acfg_handle *handle, void * /*context*/, acfg_message *message) {
  if (!handle || !message) {
    delete handle;
    return ACFG_ERR_BAD_ARGUMENT;
  }
  std::stable_sort(handle->blocks.begin(), handle->blocks.end(),
                   [](const acfg_handle::Block &a, const acfg_handle::Block &b) { return a.order < b.order; });
  std::string text;
  for (const acfg_handle::Block &block : handle->blocks) text += block.text;
  delete handle;
  char *response = static_cast<char *>(std::malloc(text.size() + 1));
  if (!response) return ACFG_ERR_NO_MEMORY;
  std::memcpy(response, text.c_str(), text.size() + 1);
  std::free(message->response);
  message->response = response;
  message->response_length = text.size();
  return 0;
}

}  // extern "C"
