#include "copy/linked_list.h"

#include "platform/memory.h"

void InitLinkedList(GenLinkedList* list, DisposeDataProc disposeProc) {
    if (list) *list = {nullptr, nullptr, 0, disposeProc};
}

ItemCount GetNumberOfItems(const GenLinkedList* list) {
    return list ? list->itemCount : 0;
}

OSErr AddToTail(GenLinkedList* list, void* data) {
    if (!list || !data) return paramErr;
    auto node = reinterpret_cast<ListNode*>(NewPtr(sizeof(ListNode)));
    if (!node) return MemError();
    *node = {nullptr, data};
    (list->tail ? list->tail->next : list->head) = node;
    list->tail = node;
    ++list->itemCount;
    return noErr;
}

void InsertList(GenLinkedList* dest, GenLinkedList* src, ListPosition after) {
    if (!dest || !src || !src->head || dest->disposeProc != src->disposeProc) return;
    ListNode*& link = after && dest->head ? after->next : dest->head;
    src->tail->next = link;
    link = src->head;
    if (!src->tail->next) dest->tail = src->tail;
    dest->itemCount += src->itemCount;
    InitLinkedList(src, nullptr);
}

void RemoveHead(GenLinkedList* list) {
    if (!list || !list->head) return;
    ListNode* node = list->head;
    list->head = node->next;
    if (!list->head) list->tail = nullptr;
    --list->itemCount;
    if (list->disposeProc) list->disposeProc(node->data);
    DisposePtr(reinterpret_cast<Ptr>(node));
}

void DestroyList(GenLinkedList* list) {
    if (!list) return;
    while (list->head) RemoveHead(list);
    InitLinkedList(list, nullptr);
}

void InitIterator(const GenLinkedList* list, ListPosition* position) {
    *position = list ? list->head : nullptr;
}

void Next(ListPosition* position) {
    if (*position) *position = (*position)->next;
}

void* GetData(ListPosition node) {
    return node ? node->data : nullptr;
}
