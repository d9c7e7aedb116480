// Strings, buffers, builders, arrays, pools and pages: compares sequences of operations with
// standard containers, and checks how each container grows.
#include <array>
#include <climits>
#include <cstring>
#include <vector>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/c_string.h"
#include "core/dymarray.h"
#include "core/dympage.h"
#include "core/dympool.h"
#include "core/string.h"
#include "core/string_array.h"
#include "fuzz/input.h"

static void fuzz_strings(Input* input) {
  String copy;
  StringArray array;
  std::vector<std::string> model;
  while (!input->empty()) {
    const unsigned decision = input->byte(), from = decision % (array.get_size() + 1);
    // The last strings of the array itself and, in most cases, another string.
    char** const own = array.get_unmanaged_strings();
    std::vector<const char*> source(own + from, own + array.get_size());
    model.erase(model.begin(), model.begin() + from);
    if (decision % 4 != 0) model.push_back(input->c_text(decision / 32));
    if (decision % 4 != 0) source.push_back(model.back().c_str());
    array.update_from(source.data(), static_cast<unsigned>(source.size()));
    REQUIRE(array.get_size() == model.size() && !array.get_unmanaged_string(array.get_size()));
    for (unsigned i = 0; i < model.size(); ++i) {
      copy.update_from(array.get_unmanaged_string(i));
      copy.update_from(copy.get_unmanaged_string());  // its own content
      const char *const text = copy.get_unmanaged_string(), *const first = model[0].c_str();
      REQUIRE(text == model[i] && equal(text, first) == (model[i] == first));
      REQUIRE(ByteArrayComparator()(text, first) == (model[i] < first));
    }
  }
  copy.release();
  array.release();
  REQUIRE(copy.get_unmanaged_string() == nullptr && array.get_size() == 0);
}

static void fuzz_buffer(Input* input) {
  size_t capacity = input->byte(), consumed = 0;
  Buffer buffer(capacity);
  std::string model;
  while (!input->empty()) {
    const int operation = input->byte() % 5;
    const std::string text = input->text(input->byte() % 64);
    const size_t own = std::min(text.size(), model.size());
    if (operation == 0) {
      buffer.release();
      REQUIRE(buffer.array == nullptr && buffer.consumed == consumed);
      buffer.consumed = consumed = capacity = 0;
      model.clear();
    } else if (operation == 1) {
      consumed = text.empty() ? capacity : consumed + text.size();  // may exceed the size
      buffer.consume(consumed - buffer.consumed);
    } else if (operation == 2 && model.size() < 4096) {
      buffer.append(buffer);
      model += model;
    } else if (operation == 3) {
      buffer.append(buffer.array + model.size() - own, own);  // its own bytes
      model += model.substr(model.size() - own);
    } else {
      buffer.append(text.data(), text.size());
      model += text;
    }
    capacity = operation >= 2 && capacity == 0 ? 8 : capacity;
    while (capacity < model.size()) capacity *= 2;
    REQUIRE(buffer.size == model.size() && buffer.capacity == capacity);
    REQUIRE(std::string(buffer.array, buffer.size) == model);
    REQUIRE(buffer.length() == model.size() - consumed);
    const char* const unread = buffer.get_unmanaged_array();
    const bool none = capacity == 0 || consumed > capacity;
    REQUIRE(none ? *unread == '\0' : unread == buffer.array + consumed);
  }
}

static void fuzz_bucket(Input* input) {
  bucket_t bucket;
  REQUIRE(bucket_nil(&bucket) == &bucket);
  std::string model;
  size_t capacity = 0;
  const auto put = [&](const std::string& text) {
    model += text;
    capacity = std::max<size_t>(capacity, 64);
    capacity = model.size() >= capacity ? model.size() + 64 : capacity;
  };
  while (!input->empty()) {
    const int operation = input->byte() % 5;
    const std::string text = input->c_text(input->byte() % 100);
    const std::string own = model.substr(model.size() - std::min(model.size(), text.size()));
    const bucket_t* result;
    if (operation == 0) {
      bucket_t* const pushed = bucket_push(bucket_append(&bucket, nullptr), 'p');
      result = bucket_appendv(pushed, text.c_str(), "-", nullptr, "never");
      for (const std::string& more : {std::string("p"), text, std::string("-")}) put(more);
    } else if (operation == 1) {
      long long number = LLONG_MIN;
      memcpy(&number, text.data(), std::min(text.size(), sizeof number));
      result = bucket_append_int(&bucket, number);
      const bool odd = number == LLONG_MIN;
      for (const char c : odd ? "--922337203685477580(" : std::to_string(number)) put({c});
    } else if (operation == 2) {
      bucket_cstring(&bucket);  // allocates
      put("");
      result = bucket_drop(&bucket, text.size());
      model.resize(model.size() - own.size());
    } else if (operation == 3) {
      result = bucket_append(&bucket, bucket_cstring(&bucket) + model.size() - own.size());
      put(own);
    } else {
      result = bucket_release(&bucket);
      model.clear();
      capacity = 0;
    }
    REQUIRE(result == &bucket && bucket.length == model.size() && bucket.capacity == capacity);
    REQUIRE(capacity == 0 ? bucket.data == nullptr : bucket_cstring(&bucket) == model);
  }
  bucket_release(&bucket);
}

using Element = std::array<uint8_t, 5>;

static int compare_elements(const void* a, const void* b) {
  return memcmp(a, b, sizeof(Element));
}

static void fuzz_array(Input* input) {
  dymarray_t array;
  const size_t wanted = input->byte() % 5, step = wanted == 0 ? 64 : wanted;
  REQUIRE(dymarray_init(&array, sizeof(Element), wanted) == step);
  std::vector<Element> model;
  size_t capacity = 0;
  while (!input->empty()) {
    const uint8_t operation = input->byte() % 5, value = input->byte();
    if (operation == 0) {
      auto* const element = static_cast<Element*>(dymarray_alloc(&array));
      REQUIRE(*element == Element{} && element == dymarray_last(&array));
      REQUIRE(dymarray_indexof(&array, element) == model.size());
      *element = {value, static_cast<uint8_t>(model.size()), 'e', 'n', 'd'};
      capacity += model.size() == capacity ? step : 0;
      model.push_back(*element);
    } else if (operation == 1) {
      dymarray_rewind(&array, value);
      model.resize(std::min<size_t>(model.size(), value));
      model.resize(model.size() - !model.empty());
      REQUIRE(dymarray_pop_back(&array) == model.size());
    } else if (operation == 2 && !model.empty()) {
      dymarray_swap(&array, value % model.size(), model.size() / 2);
      std::swap(model[value % model.size()], model[model.size() / 2]);
    } else if (operation == 3) {
      dymarray_sort(&array, compare_elements);
      std::sort(model.begin(), model.end());
    } else if (operation == 4 && value < 64) {
      dymarray_destroy(&array);
      model.clear();
      capacity = 0;
    }
    const size_t size = dymarray_size(&array);
    REQUIRE(size == model.size() && dymarray_overhead(&array) == capacity - size);
    REQUIRE((dymarray_clast(&array) == nullptr) == (size == 0));
    REQUIRE((dymarray_last(&array) == nullptr) == (size == 0));
    void* element = dymarray_begin(&array);
    REQUIRE(element == dymarray_cbegin(&array));
    for (const Element& expected : model) {
      REQUIRE(*static_cast<Element*>(element) == expected);
      const void* const next = dymarray_cnext(&array, element);
      element = dymarray_next(&array, element);
      REQUIRE(element == next);
    }
    REQUIRE(element == dymarray_cend(&array) && element == dymarray_end(&array));
  }
  dymarray_destroy(&array);
}

// Returns whether all bytes are zero, and overwrites them.
static bool take_zeroes(void* block, size_t n) {
  const std::string bytes(static_cast<char*>(block), n);
  memset(block, 0xff, n);
  return bytes.find_first_not_of('\0') == std::string::npos;
}

static void fuzz_pool(Input* input) {
  const size_t size = 8 + input->byte() % 8 * 5, per_page = 2 + input->byte() % 4;
  dympool_t pool;
  dympool_init(&pool, size, per_page);
  std::vector<char*> unused, used;  // the last unused element is allocated next
  size_t pages = 0;
  while (!input->empty()) {
    const uint8_t decision = input->byte();
    if (decision % 2 == 0 || used.empty()) {
      auto* const element = static_cast<char*>(dympool_alloc(&pool));
      if (unused.empty()) {  // of a new page, the highest element is allocated first
        for (size_t below = per_page - 1; below-- > 0;) unused.push_back(element - below * size);
        ++pages;
      }
      REQUIRE(element == unused.back() && take_zeroes(element, size));
      unused.pop_back();
      used.push_back(element);
    } else {
      std::swap(used[decision % used.size()], used.back());
      void* const head = unused.empty() ? nullptr : unused.back();
      REQUIRE(dympool_free(&pool, used.back()) == head);
      unused.push_back(used.back());
      used.pop_back();
    }
    REQUIRE(dympool_pages(&pool) == pages && dympool_overhead(&pool) == unused.size());
  }
  dympool_destroy(&pool);
  REQUIRE(dympool_pages(&pool) == 0 && dympool_overhead(&pool) == 0);
}

static void fuzz_pages(Input* input) {
  const size_t page_size = 16 + input->byte() * 4;
  dympage_t* const handle = dympage_create2(page_size);
  size_t usage = 24 + page_size, overhead = page_size - 16;  // the handle itself takes 16
  const char* last = nullptr;                                // byte of the block before
  while (!input->empty()) {
    const size_t size = input->byte() * 4 + input->byte() % 4, alignment = 1 << input->byte() % 13;
    const dympage_page_t before = *handle->page;
    const size_t padding = -reinterpret_cast<uintptr_t>(before.next_free) % alignment;
    auto* const block = static_cast<char*>(dympage_alloc(handle, size, alignment));
    if (padding + size <= before.free_bytes) {
      REQUIRE(block == before.next_free + padding);
      overhead -= padding + size;
    } else {
      // Padding that fits in the previous page is used up. The new page has room for its own
      // padding.
      const size_t payload = dympage_usage(handle) - usage - 24, least = std::max(page_size, size);
      REQUIRE(payload == least || (payload == least + alignment && alignment > 8));
      usage += 24 + payload;
      overhead += handle->page->free_bytes - (padding <= before.free_bytes ? padding : 0);
      REQUIRE(block + size + handle->page->free_bytes ==
              reinterpret_cast<char*>(handle->page + 1) + payload);
    }
    REQUIRE(reinterpret_cast<uintptr_t>(block) % alignment == 0 && take_zeroes(block, size));
    REQUIRE(last == nullptr || *last == '\xff');
    last = size == 0 ? nullptr : block + size - 1;
    REQUIRE(dympage_usage(handle) == usage && dympage_overhead(handle) == overhead);
  }
  dympage_destroy(handle);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  void (*const targets[])(Input*) = {fuzz_buffer,  fuzz_bucket, fuzz_array,
                                     fuzz_strings, fuzz_pool,   fuzz_pages};
  targets[input.byte() % 6](&input);
  return 0;
}
