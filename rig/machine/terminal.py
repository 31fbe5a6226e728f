class Terminal:
    """foot on the machine's screen, which writes down what is typed into it, at each key."""

    def __init__(self, machine):
        self.machine, self.text = machine, ""

    def expect(self, more):
        """That, and nothing before it, is in it now."""
        self.text += more

        def arrived():
            text = self.machine.text("/tmp/typed")
            return text if len(text) >= len(self.text) else None
        found = self.machine.wait(f"{more!r} in the terminal", arrived)
        assert found == self.text, f"the terminal has {found!r}, not {self.text!r}"

    def takes(self, word):
        for part in (word[at:at + 4] for at in range(0, len(word), 4)):
            self.machine.key(*(change + letter for letter in part for change in "+-"))
            self.expect(part)
