// SPDX-License-Identifier: Apache-2.0
#include "host/service/ControlClient.h"

#include "host/language/InputError.h"
#include "host/language/JsonText.h"

namespace Host {

using nlohmann::json;

std::string errorAnswer(json const& id, int status, std::string const& why, json more) {
  more["error"] = why;
  more["status"] = status;
  if (!id.is_null()) more["id"] = id;
  return jsonText(more) + '\n';
}

std::string answerText(json const& id, bool withoutText, Answer const& answer, json more) {
  // That of most lines that change something.
  if (id.is_null() && answer.json.is_null() && answer.text.empty() && more.is_null()) {
    return withoutText ? "{\"answer\":null}\n" : "{\"answer\":null,\"text\":\"\"}\n";
  }
  more["answer"] = answer.json;
  if (!withoutText) {
    more["text"] = answer.text;
    if (!answer.marks.empty()) more["marks"] = answer.marks;
  }
  if (!id.is_null()) more["id"] = id;
  return jsonText(more) + '\n';
}

ControlError::ControlError(std::exception_ptr const& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (InputError const& error) {
    status = BadInput;
    why = error.what();
    word = error.fault().word;
  } catch (StoreError const& error) {
    why = error.what();
  } catch (UnreadableException const& error) {
    status = BadInput;
    why = error.what();
  } catch (std::exception const& error) {
    why = std::string("exception: ") + error.what();
  }
}

}  // namespace Host
