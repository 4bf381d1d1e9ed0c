// The texts of one language, and its formats of numbers, dates and sizes.

import type english from '../texts/en.json';

export type Texts = typeof english;
export type Offer = 'retry' | 'logs' | 'download';
type Arguments = Record<string, string | number>;
type Plural = { one: string; other: string };

export const languages = { en: 'English', de: 'Deutsch' };
export type Language = keyof typeof languages;

export function preferredLanguage(wanted: readonly string[]): Language {
  const found = wanted.map((tag) => tag.slice(0, 2)).find((tag) => tag in languages);
  return (found ?? 'en') as Language;
}

export class Words {
  constructor(readonly language: Language, private readonly texts: Texts) {}

  // The page's text `key`, with each {name} replaced by the argument of that name. `count` selects the plural form.
  say(key: Exclude<keyof Texts['page'], 'termsText'>, given: Arguments = {}): string {
    const text: string | Plural = this.texts.page[key];
    return fill(typeof text === 'string' ? text : text[this.pluralOf(given.count as number)], given);
  }

  terms(): string[] {
    return this.texts.page.termsText;
  }

  status(status: string): string {
    return lookUp(this.texts.statuses, status) ?? status;
  }

  stage(stage: string): string {
    return lookUp(this.texts.stages, stage) ?? stage;
  }

  description(code: string): string {
    return lookUp(this.texts.descriptions, code) ?? '';
  }

  retired(reason: string, expiresOn?: string): string {
    if (reason === 'expired' && expiresOn) return fill(this.texts.retired.expiredOn, { date: this.date(expiresOn) });
    return lookUp(this.texts.retired, reason) ?? this.texts.retired['source-unavailable'];
  }

  // The code of a later engine counts as the general failure of the action.
  failure(code: string, action: string, offline: boolean): { text: string; offer: Offer[] } {
    const codes: Record<string, { text: string; offer: string[]; offerOffline?: string[] }> = this.texts.codes;
    const { INSTALL_FAILED, UNINSTALL_FAILED } = this.texts.codes;
    const found = (Object.hasOwn(codes, code) && codes[code]) || (action === 'uninstall' ? UNINSTALL_FAILED : INSTALL_FAILED);
    return { text: found.text, offer: ((offline && 'offerOffline' in found && found.offerOffline) || found.offer) as Offer[] };
  }

  bytes(count: number): string {
    const step = Math.min(3, Math.floor(Math.log10(Math.max(count, 1)) / 3));
    const unit = ['byte', 'kilobyte', 'megabyte', 'gigabyte'][step];
    const value = count / 1000 ** step;
    const maximumFractionDigits = value < 100 && step > 1 ? 1 : 0;
    return new Intl.NumberFormat(this.language, { style: 'unit', unit, unitDisplay: step ? 'short' : 'long', maximumFractionDigits }).format(value);
  }

  date(day: string): string {
    const parsed = new Date(`${day}T12:00:00Z`);
    return Number.isNaN(parsed.getTime()) ? day : new Intl.DateTimeFormat(this.language, { dateStyle: 'long' }).format(parsed);
  }

  private pluralOf(count: number): keyof Plural {
    return new Intl.PluralRules(this.language).select(count) === 'one' ? 'one' : 'other';
  }
}

export async function loadWords(language: Language): Promise<Words> {
  const answer = await fetch(`texts/${language}.json`);
  return new Words(language, (await answer.json()) as Texts);
}

function fill(text: string, given: Arguments): string {
  return text.replace(/\{(\w+)\}/g, (whole, name: string) => String(given[name] ?? whole));
}

function lookUp(table: Record<string, string>, key: string): string | undefined {
  return Object.hasOwn(table, key) ? table[key] : undefined;
}
