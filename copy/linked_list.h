// A singly linked list of data pointers: the folders that a tree copy still has to visit, the forks that a
// drop-box copy keeps open.
#pragma once

#include "platform/types.h"

struct ListNode {
    ListNode* next;
    void* data;
};

// Gives back one item's data when its list is destroyed.
using DisposeDataProc = void (*)(void* data);

struct GenLinkedList {
    ListNode* head;
    ListNode* tail;
    ItemCount itemCount;
    DisposeDataProc disposeProc; // may be null
};

// Where an iteration stands; null behind the last item.
using ListPosition = ListNode*;

// Makes an empty list. The list owns its nodes; of the data it only knows the call-back.
void InitLinkedList(GenLinkedList* list, DisposeDataProc disposeProc);

// 0 for a null list.
ItemCount GetNumberOfItems(const GenLinkedList* list);

// -50 for a null list or null data; the memory error when no node can be had (the data then stays the
// caller's).
OSErr AddToTail(GenLinkedList* list, void* data);

// Moves all nodes of `src` into `dest` behind `after` (null: in front). Only lists with the same call-back
// are joined; an empty `src` changes nothing.
void InsertList(GenLinkedList* dest, GenLinkedList* src, ListPosition after);

// Disposes of the first item and its node, if there is one.
void RemoveHead(GenLinkedList* list);

// Disposes of every item and node; the list is then empty and has no call-back.
void DestroyList(GenLinkedList* list);

void InitIterator(const GenLinkedList* list, ListPosition* position);
void Next(ListPosition* position);
void* GetData(ListPosition node);
