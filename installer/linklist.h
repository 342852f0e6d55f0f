// A doubly linked list of untyped items with a cursor. The cursor stands on the node before the
// current item, so adding puts the new item in front of the current one and a list built by adding
// alone keeps its order. Null lists are accepted and hold nothing.
#pragma once

struct Node {
    Node *prev; // exact for appended nodes only, see list_add
    void *data; // the item; null in the sentinel
    Node *next; // null in the last node
};

struct Linklist {
    Node *root;    // the sentinel before the first item; its prev is itself
    Node *current; // the node before the current item; the last node: at the end
    int items;
};

// A new, empty list.
[[nodiscard]] Linklist *list_init();

// Inserts before the current item, which stays current. Only the forward links are kept exact: the
// node that follows keeps its old prev, so list_prev from there passes over the new item. 1, or 0
// for null arguments.
int list_add(Linklist *list, void *item);

// Detaches the current item (at the end: the last one) and returns it; null for an empty list.
// The item that followed becomes current.
[[nodiscard]] void *list_del(Linklist *list);

// The current item; null at the end.
void *list_get(const Linklist *list);

// Moves on and returns the new current item; null at the end.
void *list_get_next(Linklist *list);

// Move the cursor: to the first item; one back, staying at the start; one on, staying at the end.
void list_start(Linklist *list);
void list_prev(Linklist *list);
void list_next(Linklist *list);

// The number of items; 0 for null.
int list_items(const Linklist *list);

// Releases the list and, with free, every item; clears the caller's pointer.
void list_free_dealloc(Linklist **list);

// A typed view of the item that a node holds; null for null.
template <typename T> T *node_item(const Node *node)
{
    return node ? static_cast<T *>(node->data) : nullptr;
}

// The node of the first item, for walks that leave the cursor alone; null for an empty list.
inline Node *list_first(const Linklist *list)
{
    return list ? list->root->next : nullptr;
}
