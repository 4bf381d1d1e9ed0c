// A view is a plain tree; `patch` makes the document equal to it.
// An element that keeps its tag and key is updated in place and so keeps its focus, open details and selection.

type Attributes = Record<string, string | number | boolean | undefined | ((event: Event) => void)>;
export type View = VirtualElement | string | false | undefined;

interface VirtualElement {
  tag: string;
  key: string | undefined;
  attributes: Attributes;
  children: View[];
}

interface Patched extends Element {
  viewKey?: string | undefined;
  viewAttributes?: Attributes;
}

const svgTags = new Set(['svg', 'path']);
// Set as properties: what the user can change, because the attribute is only its initial value, and handlers.
const properties = new Set(['checked', 'selected', 'onchange', 'onclick', 'onsubmit']);

// `key` distinguishes siblings of the same tag. A falsy child is omitted, and so is an attribute that is undefined or false.
export function h(tag: string, attributes: Attributes & { key?: string } = {}, ...children: View[]): VirtualElement {
  const { key, ...rest } = attributes;
  return { tag, key, attributes: rest, children };
}

export function patch(parent: Element, views: View[]): void {
  const wanted = views.filter((view): view is VirtualElement | string => Boolean(view) || view === '');
  const old = [...parent.childNodes];
  const nodes = wanted.map((view) => takeMatching(old, view) ?? create(view));
  // Removed first, so that the others needn't be moved: a moved element loses the focus.
  for (const node of old) node.remove();
  nodes.forEach((node, position) => {
    if (parent.childNodes[position] !== node) parent.insertBefore(node, parent.childNodes[position] ?? null);
    update(node, wanted[position]!);
  });
}

function takeMatching(old: ChildNode[], view: VirtualElement | string): ChildNode | undefined {
  const position = old.findIndex((node) => matches(node, view));
  return position < 0 ? undefined : old.splice(position, 1)[0];
}

function matches(node: ChildNode, view: VirtualElement | string): boolean {
  if (typeof view === 'string') return node.nodeType === Node.TEXT_NODE;
  return node instanceof Element && node.localName === view.tag && (node as Patched).viewKey === view.key;
}

function create(view: VirtualElement | string): ChildNode {
  if (typeof view === 'string') return document.createTextNode(view);
  if (svgTags.has(view.tag)) return document.createElementNS('http://www.w3.org/2000/svg', view.tag);
  return document.createElement(view.tag);
}

function update(node: ChildNode, view: VirtualElement | string): void {
  if (typeof view === 'string') {
    if (node.nodeValue !== view) node.nodeValue = view;
    return;
  }
  const element = node as Patched;
  element.viewKey = view.key;
  updateAttributes(element, element.viewAttributes ?? {}, view.attributes);
  element.viewAttributes = view.attributes;
  patch(element, view.children);
}

function updateAttributes(element: Element, before: Attributes, after: Attributes): void {
  for (const name of new Set([...Object.keys(before), ...Object.keys(after)])) {
    const value = after[name];
    if (properties.has(name)) Reflect.set(element, name, value ?? (name.startsWith('on') ? null : false));
    else if (before[name] === value) continue;
    else if (value === undefined || value === false) element.removeAttribute(name);
    else element.setAttribute(name, value === true ? '' : String(value));
  }
}
