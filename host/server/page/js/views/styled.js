// Sets style properties of an element. A style attribute is what the server's content policy
// forbids; the properties behind it are not.

import { noChange } from "/vendor/lit-html/lit-html.js";
import { directive, Directive } from "/vendor/lit-html/directive.js";

class Styled extends Directive {
  render() {
    return noChange;
  }

  update(part, [properties]) {
    for (const [name, value] of Object.entries(properties)) {
      if (part.element.style.getPropertyValue(name) !== value) {
        part.element.style.setProperty(name, value);
      }
    }
    return noChange;
  }
}

export const styled = directive(Styled);
