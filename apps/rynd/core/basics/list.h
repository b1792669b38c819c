// A circular doubly linked list whose elements carry their own links.
#pragma once

#include "core/basics/log.h"

namespace rynd {

/// The links of one element, or the head of a list. An element is in at most one list; its owner guards the list.
struct ListLinks {
  ListLinks *previous = this;
  ListLinks *next = this;

  ListLinks() = default;
  ListLinks(const ListLinks &) = delete;
  ListLinks &operator=(const ListLinks &) = delete;
};

/// True when `head` has no elements.
inline bool ListIsEmpty(const ListLinks &head) {
  return head.next == &head;
}

/// Append `element` at the tail of `head`'s list.
inline void ListAppend(ListLinks *head, ListLinks *element) {
  element->previous = head->previous;
  element->next = head;
  head->previous->next = element;
  head->previous = element;
}

/// Unlink `element`. Neighbours that do not point back at it mean corrupted memory: fatal.
inline void ListRemove(ListLinks *element) {
  if (element->previous->next != element || element->next->previous != element) {
    Panic("VERIFY %s:%d \n", "hykernel/public/list", 411);
  }
  element->previous->next = element->next;
  element->next->previous = element->previous;
  element->previous = element;
  element->next = element;
}

}  // namespace rynd
