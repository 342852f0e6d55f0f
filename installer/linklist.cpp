#include "linklist.h"

#include <cstdlib>

namespace {

// Found from the front, as links back are not exact.
Node *node_before(const Linklist *list, const Node *node)
{
    Node *before = list->root;
    while (before->next != node)
        before = before->next;
    return before;
}

} // namespace

Linklist *list_init()
{
    Node *root = new Node{};
    root->prev = root;
    return new Linklist{.root = root, .current = root, .items = 0};
}

int list_add(Linklist *list, void *item)
{
    if (!list || !item)
        return 0;
    Node *node = new Node{.prev = list->current, .data = item, .next = list->current->next};
    list->current->next = node;
    list->current = node;
    list->items++;
    return 1;
}

void *list_del(Linklist *list)
{
    if (!list || !list->root->next)
        return nullptr;
    if (!list->current->next)
        list->current = node_before(list, list->current);
    Node *node = list->current->next;
    void *item = node->data;
    list->current->next = node->next;
    // Inserting keeps forward links only, so more than the next node may point back here.
    for (Node *later = node->next; later; later = later->next)
        if (later->prev == node)
            later->prev = list->current;
    delete node;
    list->items--;
    return item;
}

void *list_get(const Linklist *list)
{
    return list && list->current->next ? list->current->next->data : nullptr;
}

void *list_get_next(Linklist *list)
{
    list_next(list);
    return list_get(list);
}

void list_start(Linklist *list)
{
    if (list)
        list->current = list->root;
}

void list_prev(Linklist *list)
{
    if (list)
        list->current = list->current->prev;
}

void list_next(Linklist *list)
{
    if (list && list->current->next)
        list->current = list->current->next;
}

int list_items(const Linklist *list)
{
    return list ? list->items : 0;
}

void list_free_dealloc(Linklist **list)
{
    if (!list || !*list)
        return;
    for (Node *node = (*list)->root; node;) {
        Node *next = node->next;
        std::free(node->data);
        delete node;
        node = next;
    }
    delete *list;
    *list = nullptr;
}
